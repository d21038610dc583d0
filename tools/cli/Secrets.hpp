#pragma once
// Keeping secrets out of everything the client writes: standard output, standard error and the
// diagnostic log. Every writer passes its text through maskSecrets, which blanks the values the
// client knows to be secret (password, guest secret, tokens) and any word that looks like a token.

#include <string>
#include <string_view>

#include <velora/auth/KeycloakRecords.hpp>

namespace velora::cli {

/// What a masked value reads as.
inline constexpr std::string_view kRedacted = "<redacted>";

/// Masks `value` wherever it appears from now on. Values under four characters are ignored:
/// blanking every "a" would make the output unreadable and protect nothing.
void registerSecret(std::string value);
/// Registers the token response's access, refresh and id tokens.
void registerTokens(const KeyCloakAuthResponse& tokens);

/// `text` with every registered secret, and every run of 40 or more token characters (letters,
/// digits, "-_.+=") holding both a letter and a digit, replaced by kRedacted.
std::string maskSecrets(std::string_view text);

/// Appends a masked entry to the library's diagnostic log (console.log).
void logEntry(std::string_view message);

}  // namespace velora::cli

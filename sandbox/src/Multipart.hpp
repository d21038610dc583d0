#pragma once
// A reader of multipart/form-data bodies, apart from any routing: it splits a body that has been
// read whole into its parts, or says what is wrong with it.
//
// Besides the usual layout it takes the one the app sends: header names may have whitespace
// before their colon ("Content-Type : image/jpeg"), Content-Disposition parameters may have no
// space after their semicolon, and the last part is followed by a blank line before the closing
// delimiter, which belongs to no part.

#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace velora::sandbox::detail {

struct MultipartEntry {
  std::string name;                     // Content-Disposition's name
  std::optional<std::string> filename;  // Content-Disposition's filename
  std::string mediaType;  // Content-Type without parameters, in lower case; empty when not declared
  std::string_view content;  // a view into the body that was read
};

/// The parts in body order, or the text of what is wrong.
using MultipartResult = std::variant<std::vector<MultipartEntry>, std::string>;

/// The boundary of a "multipart/form-data; boundary=B" Content-Type (B may be quoted); nullopt
/// for another type or a missing or empty boundary.
std::optional<std::string> multipartBoundary(std::string_view contentType);

/// Splits `body` at the delimiters of `boundary`. Only CRLF "--" boundary followed by "--" or by
/// optional spaces and CRLF delimits: content may hold CRLF and "--" anywhere else. A part's
/// content ends at the CRLF before its delimiter; before the closing delimiter one blank line
/// more is dropped when there is one. Refused: a body that does not start with the delimiter, a
/// part whose header block does not end or has a line without a colon, a part without a
/// form-data Content-Disposition naming it, and a body without the closing delimiter.
MultipartResult readMultipart(std::string_view body, std::string_view boundary);

}  // namespace velora::sandbox::detail

// first_request: the program of docs/getting-started.md, kept here so that it is built and run
// with the other examples. A guest login against the sandbox, then one authenticated request.

#include <cstdlib>
#include <iostream>
#include <velora/velora.hpp>

int main() {
  const char* fromEnvironment = std::getenv("VELORA_URL");  // e.g. "https://platform.example.com"
  std::string url = fromEnvironment ? fromEnvironment : "http://127.0.0.1:8080";
  if (!url.ends_with('/')) url += '/';  // operation paths are appended to it as they are

  // Which identity server and clients to log in with (here: the sandbox's).
  velora::KeycloakEnvironment identity;
  identity.discoverURL = url + "realms/velora/.well-known/openid-configuration";
  identity.clientId = "velora-app";
  identity.redirectURI = "http://127.0.0.1:53682/callback";
  identity.guestClientId = "velora-guest";
  identity.guestSecretKey = "velora-guest-secret";

  velora::Platform::setDefault(velora::Platform::linuxDefaults("hello"));
  velora::Orvane::setupSDK(velora::EnvironmentModel(url, /*timeout s*/ 20, identity));
  velora::Orvane& orvane = velora::Orvane::shared();

  try {
    orvane.keycloakGuestLogin().get();                        // a guest session
    velora::ProfileAction profile = orvane.getUserActions().get();  // an authenticated request
    std::cout << "first request ok: profile " << profile.profileId << '\n';
  } catch (const velora::APIError& e) {                       // the platform said no
    std::cerr << e.localizedDescription() << " (" << e.responseMessage.code << ")\n";
    return 1;
  } catch (const velora::PlatformError& e) {                  // login, transport, device
    std::cerr << e.domain << " (" << e.code << ")\n";
    return 1;
  }
}

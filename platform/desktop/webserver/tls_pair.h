#pragma once

#include <filesystem>
#include <string>

/** Certificates of a camera's web server, and their keys. */
namespace desktop {

struct TlsPair {
    std::filesystem::path certificate; /**< PEM, the camera's own first */
    std::filesystem::path key;         /**< PEM, without a passphrase */
};

/**
 * A pair that somebody gives. Throws std::runtime_error that names the file and what is wrong: it cannot be read, or
 * the key is not the certificate's.
 */
TlsPair givenTlsPair(const std::filesystem::path& certificate, const std::filesystem::path& key);

/**
 * The camera's own pair, in its folder: made the first time, good for ten years, signed by itself, and made anew when
 * what lies there is no pair. address: the IP address that it listens on. Throws std::runtime_error with the reason.
 */
TlsPair ownTlsPair(const std::filesystem::path& stateFolder, const std::string& address);

/** "SHA256:" and the bytes of a certificate's digest, as browsers show it. Throws std::runtime_error. */
std::string fingerprint(const std::filesystem::path& certificate);

}  // namespace desktop

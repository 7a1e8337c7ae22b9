#include "desktop/webserver/tls_pair.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <glib.h>
#include <memory>
#include <stdexcept>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

#include "base/unique_fd.h"
#include "desktop/config/not_now.h"

namespace desktop {
namespace {

namespace fs = std::filesystem;

constexpr const char* kDays = "3650";

/** What the program openssl prints. Throws std::runtime_error with its complaint. */
std::string openssl(std::vector<std::string> words) {
    words.insert(words.begin(), "openssl");
    std::vector<gchar*> arguments;
    for (std::string& word : words) {
        arguments.push_back(word.data());
    }
    arguments.push_back(nullptr);
    gchar* out = nullptr;
    gchar* err = nullptr;
    GError* error = nullptr;
    gint status = 0;
    const gboolean ran = g_spawn_sync(nullptr, arguments.data(), nullptr, G_SPAWN_SEARCH_PATH, nullptr, nullptr, &out,
                                      &err, &status, &error);
    const std::unique_ptr<gchar, decltype(&g_free)> output(out, g_free);
    const std::unique_ptr<gchar, decltype(&g_free)> complaint(err, g_free);
    const std::unique_ptr<GError, decltype(&g_error_free)> failure(error, g_error_free);
    if (ran == FALSE) {
        throw std::runtime_error(std::string("cannot run openssl: ") + error->message);
    }
    if (status != 0) {
        const std::string text = complaint.get();
        throw std::runtime_error("openssl " + words[1] + ": " + text.substr(0, text.find('\n')));
    }
    return output.get();
}

/** Brings what a file or folder holds to the disk. */
void sync(const fs::path& path) {
    const UniqueFd file(open(path.c_str(), O_RDONLY | O_CLOEXEC));
    if (fsync(file.get()) != 0) {
        throw NotNow("cannot write " + path.string() + ": " + std::strerror(errno));
    }
}

bool isPair(const TlsPair& pair) {
    try {
        givenTlsPair(pair.certificate, pair.key);
        return true;
    } catch (const std::runtime_error&) {
        return false;
    }
}

}  // namespace

TlsPair givenTlsPair(const fs::path& certificate, const fs::path& key) {
    const auto publicKey = [](const char* option, const fs::path& file, std::vector<std::string> words) {
        words.insert(words.end(), {"-in", file.string()});
        try {
            return openssl(words);
        } catch (const std::runtime_error& error) {
            throw std::runtime_error(std::string(option) + ": expected a PEM file that can be read, got " +
                                     file.string() + " (" + error.what() + ")");
        }
    };
    if (publicKey("--tls-cert", certificate, {"x509", "-noout", "-pubkey"}) !=
        publicKey("--tls-key", key, {"pkey", "-pubout", "-passin", "pass:"})) {
        throw std::runtime_error("--tls-key: expected the key of " + certificate.string() + ", got that of another, " +
                                 key.string());
    }
    return {fs::absolute(certificate), fs::absolute(key)};
}

TlsPair ownTlsPair(const fs::path& stateFolder, const std::string& address) {
    const TlsPair pair = {stateFolder / "tls-cert.pem", stateFolder / "tls-key.pem"};
    if (fs::exists(pair.certificate) && fs::exists(pair.key) && isPair(pair)) {
        return pair;
    }
    const TlsPair made = {pair.certificate.string() + ".new", pair.key.string() + ".new"};
    const bool any = address == "0.0.0.0" || address == "::";
    const std::string names = "subjectAltName=DNS:localhost,IP:127.0.0.1,IP:::1" + (any ? "" : ",IP:" + address);
    openssl({"req", "-x509", "-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:prime256v1", "-nodes", "-sha256", "-days",
             kDays, "-subj", "/CN=Ostrel Senvo", "-addext", names, "-keyout", made.key.string(), "-out",
             made.certificate.string()});
    chmod(made.key.c_str(), S_IRUSR | S_IWUSR);
    sync(made.key);
    sync(made.certificate);
    fs::rename(made.key, pair.key);
    fs::rename(made.certificate, pair.certificate);
    sync(stateFolder);
    return pair;
}

std::string fingerprint(const fs::path& certificate) {
    const std::string text = openssl({"x509", "-noout", "-fingerprint", "-sha256", "-in", certificate.string()});
    const std::string digest = text.substr(text.find('=') + 1);
    return "SHA256:" + digest.substr(0, digest.find('\n'));
}

}  // namespace desktop

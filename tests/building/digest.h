#pragma once

#include <glib.h>
#include <memory>
#include <string>

#include "curl.h"

/** Digest logins that are made by hand, for what no client does. */

inline std::string sha256(const std::string& text) {
    const std::unique_ptr<gchar, decltype(&g_free)> digest(
        g_compute_checksum_for_string(G_CHECKSUM_SHA256, text.data(), static_cast<gssize>(text.size())), g_free);
    return digest.get();
}

/** A random number of the web server's own. */
inline std::string nonceOf(const std::string& address) {
    const std::string challenge = curl("http://" + address + "/").headers;
    const size_t at = challenge.find("nonce=\"") + 7;
    return challenge.substr(at, challenge.find('"', at) - at);
}

/** The parameters of a login but for the user's name: those that make it right. */
inline std::string digestOf(const std::string& nonce, const std::string& user, const std::string& password,
                            const std::string& method, const std::string& uri) {
    const std::string response = sha256(sha256(user + ":Ostrel Senvo:" + password) + ":" + nonce +
                                        ":00000001:c:auth:" + sha256(method + ":" + uri));
    return "realm=\"Ostrel Senvo\", nonce=\"" + nonce + "\", uri=\"" + uri +
           "\", algorithm=SHA-256, qop=auth, nc=00000001, cnonce=\"c\", response=\"" + response + "\"";
}

#pragma once

#include <glib.h>
#include <string>

/** Receives an error of a platform call and frees it. */
class PlatformError {
public:
    PlatformError() = default;
    ~PlatformError() { g_clear_error(&m_error); }
    PlatformError(const PlatformError&) = delete;
    PlatformError& operator=(const PlatformError&) = delete;

    /** The slot to pass to one platform call. */
    GError** slot() { return &m_error; }

    /** Whether the platform gave an error. */
    explicit operator bool() const { return m_error != nullptr; }

    /** The error's code, 0 when the platform gave none. */
    int code() const { return m_error == nullptr ? 0 : m_error->code; }

    /** The platform's words, "N/A" when it gave none. */
    std::string message() const { return m_error == nullptr ? "N/A" : m_error->message; }

    void clear() { g_clear_error(&m_error); }

private:
    GError* m_error = nullptr;
};

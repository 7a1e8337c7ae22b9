#pragma once

#include <stdexcept>
#include <string>

#include "vdo-types.h"

/** Failures of the video service, as exceptions inside it and as GErrors at its C interface. */
namespace desktop {

/** A failure that a call of the video service reports. The message names the source, what was expected, what came. */
class VideoError : public std::runtime_error {
public:
    VideoError(VdoErrorCode code, const std::string& message) : std::runtime_error(message), m_code(code) {}
    VdoErrorCode code() const { return m_code; }

private:
    VdoErrorCode m_code;
};

/** Fills the caller's error slot, which may be null, with an error of the domain VDO_ERROR. */
void reportError(GError** slot, VdoErrorCode code, const std::string& message);

/** Reports the exception in flight: a VideoError with its code, any other as VDO_ERROR_FAILED. Call in a handler. */
void reportCurrentException(GError** slot);

}  // namespace desktop

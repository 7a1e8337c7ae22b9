#include "desktop/frames/video_error.h"

GQuark vdo_error_quark(void) {
    return g_quark_from_static_string("vdo-error-quark");
}

namespace desktop {

void reportError(GError** slot, VdoErrorCode code, const std::string& message) {
    g_set_error_literal(slot, VDO_ERROR, code, message.c_str());
}

void reportCurrentException(GError** slot) {
    try {
        throw;
    } catch (const VideoError& error) {
        reportError(slot, error.code(), error.what());
    } catch (const std::exception& error) {
        reportError(slot, VDO_ERROR_FAILED, error.what());
    }
}

}  // namespace desktop

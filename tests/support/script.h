#pragma once

#include <glib.h>
#include <string>

#include <larod.h>

/** What the scripted services share: counting calls and carrying out planned faults. */
namespace scripted {

/** Counts the call; true when it is to fail now, with the error filled in. Throws when it is to throw. */
bool failsNow(const char* call, GQuark domain, GError** error);
bool failsNow(const char* call, larodError** error);
bool failsNow(const char* call);

/** Fills an error that the service itself finds. */
bool refuse(GQuark domain, int code, const std::string& message, GError** error);
bool refuse(larodErrorCode code, const std::string& message, larodError** error);

void resetVideo();
void resetInference();
void resetParameters();
void resetEvents();
void resetOverlay();

}  // namespace scripted

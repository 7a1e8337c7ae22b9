#pragma once

#include <string>

/**
 * Opens a listening FastCGI socket at a path, where everybody may connect. Returns its descriptor, or -1, logged, when
 * the path's folder does not take one. The path may be longer than a socket's address can be, and hold colons.
 */
int openFastCgiSocket(const std::string& path, int backlog);

#pragma once

#include <string>

/**
 * Replaces a file's content so that a power cut leaves either the old file or the new one: writes beside it, syncs,
 * renames, syncs the folder. Returns false, with errno set and the old file untouched, when any step fails.
 */
bool replaceFile(const std::string& path, const std::string& content);

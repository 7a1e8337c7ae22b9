#pragma once

#include <map>
#include <string>

#include "config/settings_file.h"

/** A settings document by its tags, as a camera hands it out and takes it back. */
using SettingsTags = std::map<std::string, std::string>;

/** Puts settings into a camera's document. Areas that they do not name are switched off; the rest stays. */
void applySettings(const Settings& settings, SettingsTags& tags);

/** The document as a camera takes it. */
std::string uploadBody(const SettingsTags& tags);

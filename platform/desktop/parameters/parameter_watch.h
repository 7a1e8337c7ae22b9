#pragma once

#include <functional>
#include <string>

namespace desktop {

using ParameterWatcher = std::function<void(const std::string& name, const std::string& value)>;

/**
 * Has every setting of a parameter in this process told to a watcher, in the thread that sets it and before its call
 * returns. There is one watcher; an empty one ends it, and is not told anything once this has returned. The watcher
 * sets no parameters.
 */
void watchParameters(ParameterWatcher watcher);

}  // namespace desktop

#pragma once

#include <functional>
#include <optional>
#include <string>

namespace desktop {

/** value: nothing when a call has failed, see watchParameters. */
using ParameterWatcher = std::function<void(const std::string& name, const std::optional<std::string>& value)>;

/**
 * Has every setting of a parameter in this process told to a watcher, in the thread that sets it and before its call
 * returns. A call that has failed, of whatever parameter, is told without a value, also one before this: whoever made
 * it may take it that the store is lost, and tell it nothing any more. There is one watcher; an empty one ends it, and
 * is not told anything once this has returned. The watcher sets no parameters.
 */
void watchParameters(ParameterWatcher watcher);

}  // namespace desktop

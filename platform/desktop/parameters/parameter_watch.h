#pragma once

#include <functional>
#include <optional>
#include <string>

namespace desktop {

/**
 * value: nothing when a call has failed, see watchParameters. Returns whether all that it wants to know is known
 * (again).
 */
using ParameterWatcher = std::function<bool(const std::string& name, const std::optional<std::string>& value)>;

/**
 * Has every setting of a parameter in this process told to a watcher, in the thread that sets it and before its call
 * returns. A call that has failed, of whatever parameter, is told without a value: whoever made it may take it that the
 * store is lost, and tell it nothing any more. So is one before this, in this process or another, until a watcher has
 * said that it knows all again: a file beside the store, parameters.db.lost, remembers it. There is one watcher; an
 * empty one ends it, and is not told anything once this has returned. The watcher sets no parameters.
 */
void watchParameters(ParameterWatcher watcher);

}  // namespace desktop

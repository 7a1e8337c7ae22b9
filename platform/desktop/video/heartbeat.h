#pragma once

namespace desktop {

/**
 * Tells the supervisor that the process is at work: changes the configured file, at most once a second; nothing
 * without one. Any thread.
 */
void beat();

}  // namespace desktop

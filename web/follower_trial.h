#pragma once

#include <string>

/**
 * What a leader and a follower tell of themselves, as JSON: {"application", "version", "time", "zone", "offset"}. Zone:
 * the name of the machine's, empty where it has none; offset: of its local time from UTC, seconds, as it is now. Any
 * thread.
 */
std::string aboutText();

/**
 * Tries whether a follower can be asked with a login, and tells what came of it as JSON:
 * - "found": its name has an address, "status": the HTTP status of its answer, 0 for none,
 * - "counts": it told its status as this application does,
 * - "role": "operator", "viewer", or empty where it does not say,
 * - "version": its application's, null where it tells none, beside "own",
 * - "ahead": so many whole seconds its clock is ahead of this one, null where it tells none.
 * Nothing of the login is in it. Takes 5 seconds at most. Any thread.
 */
std::string tryFollower(const std::string& ip, const std::string& login, const std::string& password);

#pragma once

#include <chrono>
#include <optional>
#include <string>

constexpr size_t kMostNameLookups = 20; /**< at a time: two for each follower */

/**
 * Finds the addresses of the host that a URL names, as CURLOPT_RESOLVE takes them; empty for a host that is an address,
 * or none. Nothing when the name has none or the machine's resolver does not say so within the limit.
 *
 * A resolver cannot be told to stop, so a lookup that is given up goes on in a thread of its own until it ends by
 * itself. Until then nobody waits for that name again, nor is there another lookup of it; nor are there more than
 * kMostNameLookups of all names together. Any thread.
 */
std::optional<std::string> lookUpHost(const std::string& url, std::chrono::microseconds limit);

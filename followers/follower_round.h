#pragma once

#include <array>
#include <functional>
#include <future>
#include <optional>
#include <system_error>
#include <type_traits>

#include "config/config_params.h"

/**
 * Asks every follower that wanted(i) names, all at once, each on a thread of its own: ten silent followers hold the
 * caller as long as one does. Those for which the machine has no thread are asked by the caller, one by one. Returns
 * the answers by follower, 0..9; nothing for those not asked. An exception of ask comes out of here, that of the lowest
 * follower, after all have answered.
 */
template <typename Wanted, typename Ask>
auto askFollowers(Wanted wanted, Ask ask) {
    using Answer = std::invoke_result_t<Ask, size_t>;
    std::array<std::future<Answer>, CameraInfo::kFollowers> pending;
    for (size_t i = 0; i < pending.size(); ++i) {
        if (wanted(i)) {
            try {
                pending[i] = std::async(std::launch::async, ask, i);
            } catch (const std::system_error&) {
                // The others must not be asked for nothing: a follower forgets what it has told.
                pending[i] = std::async(std::launch::deferred, ask, i);
            }
        }
    }
    std::array<std::optional<Answer>, CameraInfo::kFollowers> answers;
    for (size_t i = 0; i < pending.size(); ++i) {
        if (pending[i].valid()) {
            answers[i] = pending[i].get();
        }
    }
    return answers;
}

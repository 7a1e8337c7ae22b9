#pragma once

#include <functional>
#include <optional>
#include <string>
#include <vector>

/**
 * Kills a process at a chosen step: every call with which a program or its libraries change files is one. The calls are
 * replaced in the whole test program; outside of run() they do what they always do.
 */
namespace file_steps {

struct Step {
    std::string name; /**< the call and the file's name: "write log.txt" */
    size_t bytes = 0; /**< what a write was given to write */
};

/** Where a process is killed: before a step (counted from 0), of which, when it is a write, some bytes get through. */
struct Stop {
    size_t step;
    size_t bytes = 0;
};

struct Run {
    std::vector<Step>
        steps; /**< those that were reached; the last one was not done when the process was killed there */
    bool killed = false;
};

/** Does some work in a child process, which dies at the stop, if it comes there. */
Run run(std::optional<Stop> stop, const std::function<void()>& work);

/** The names of the steps. */
std::vector<std::string> names(const Run& run);

/** Where a write may tear: after each byte of a short one, after a choice of them of a long one; 0 comes first. */
std::vector<size_t> tears(const Step& step);

}  // namespace file_steps

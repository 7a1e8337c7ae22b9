#pragma once

#include <chrono>
#include <string>
#include <vector>

/** How a topic's process ended. */
struct TopicEnd {
    std::string output; /**< what it wrote to its standard output, when asked to be kept */
    int status = 0;     /**< its exit status */
    std::string fault;  /**< why the run cannot count: a signal, a hang, a process that it left behind; empty: none */
};

/**
 * Runs a command and waits until it has ended with everything that it started. One that takes longer than the limit is
 * ended, and so is every process that outlives it. keep: its output is returned instead of shown. Call it before other
 * threads or children exist. Throws std::runtime_error when the command cannot be started.
 */
TopicEnd runTopic(const std::vector<std::string>& command, std::chrono::seconds limit, bool keep);

#pragma once

#include <CLI/CLI.hpp>
#include <exception>
#include <functional>
#include <iostream>

/** The status of a program that was not used as it can be, or that could not do it. */
inline constexpr int kUnusable = 2;

/**
 * Does what a command line asks for, and gives the status to end with: command's, or kUnusable where the words make no
 * sense or command throws, with the reason on the error stream behind the speaker's name. For programs that link CLI11.
 */
inline int perform(CLI::App& app, int argc, char** argv, const char* speaker, const std::function<int()>& command) {
    try {
        app.parse(argc, argv);
    } catch (const CLI::Success& success) {
        return app.exit(success);
    } catch (const CLI::ParseError& error) {
        app.exit(error, std::cerr, std::cerr);
        return kUnusable;
    }
    try {
        return command();
    } catch (const std::exception& error) {
        std::cerr << speaker << ": " << error.what() << '\n';
        return kUnusable;
    }
}

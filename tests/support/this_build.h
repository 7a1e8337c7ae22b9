#pragma once

#include <filesystem>
#include <string>
#include <vector>

/**
 * Where this build lies. One source file knows, so that all others compile to the same objects in every checkout and
 * the compiler's cache serves them all.
 */
namespace this_build {

std::filesystem::path checkout();

/** The build's own folder. */
std::filesystem::path folder();

/** The path of a program of this build. */
std::string program(const std::string& name);

/** The words that start a program of this build, with those of the emulator where it is another processor's. */
std::vector<std::string> command(const std::string& name);

/** Where the folder of real clips and networks would be: SENVO_SHARED in the environment, else beside the checkout. */
std::filesystem::path shared();

}  // namespace this_build

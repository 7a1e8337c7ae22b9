#pragma once

#include <CLI/CLI.hpp>
#include <string>
#include <vector>

namespace desktop {

/**
 * A file of a program's options, one a line: "port = 8080". The value is all that follows, as it stands; it needs no
 * quotes, and a # in it is part of it. Empty lines and lines that begin with # are passed over.
 */
class OptionsFile : public CLI::Config {
public:
    /** app: whose options they are. */
    explicit OptionsFile(const CLI::App& app) : m_app(app) {}

    /** Throws CLI::ConfigError that names the line, for one that is no option, without telling its value. */
    std::vector<CLI::ConfigItem> from_config(std::istream& file) const override;

    /** Such files are written by people alone. */
    std::string to_config(const CLI::App*, bool, bool, std::string) const override { return {}; }

private:
    const CLI::App& m_app;
};

/** Adds the option --config, which reads an OptionsFile; what the command line says as well, counts. */
void addOptionsFile(CLI::App& app);

}  // namespace desktop

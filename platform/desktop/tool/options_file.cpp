#include "desktop/tool/options_file.h"

#include <memory>

namespace desktop {

std::vector<CLI::ConfigItem> OptionsFile::from_config(std::istream& file) const {
    std::vector<CLI::ConfigItem> read;
    size_t number = 0;
    for (std::string line; std::getline(file, line);) {
        ++number;
        CLI::detail::trim(line);
        if (line.empty() || line[0] == '#') {
            continue;
        }
        const size_t equals = line.find('=');
        std::string name = line.substr(0, equals);
        CLI::detail::rtrim(name);
        const CLI::Option* const option = m_app.get_option_no_throw("--" + name);
        if (equals == std::string::npos || option == nullptr || !option->get_configurable()) {
            throw CLI::ConfigError("line " + std::to_string(number) +
                                   ": expected an option = its value, such as port = 8080, got \"" + name + "\"");
        }
        CLI::ConfigItem item;
        item.name = name;
        item.inputs = {CLI::detail::trim_copy(line.substr(equals + 1))};
        read.push_back(item);
    }
    return read;
}

void addOptionsFile(CLI::App& app) {
    app.set_config("--config", "",
                   "File of these options, one a line: port = 8080. What the command line says as well, counts")
        ->type_name("FILE");
    app.config_formatter(std::make_shared<OptionsFile>(app));
}

}  // namespace desktop

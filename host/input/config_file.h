// SPDX-License-Identifier: MIT
// Files of options: "name = value" a line, by the long names of the command line, which comes ahead
// of them.
#pragma once

#include <CLI/CLI.hpp>

#include <map>
#include <set>
#include <string>
#include <vector>

namespace kelo_host
{

class config_file : public CLI::Config
{
  public:
    // `secrets`: names of options that may stand in a file which its owner alone can read.
    config_file(const CLI::App& app, std::set<std::string> secrets)
        : app_(app), secrets_(std::move(secrets))
    {
    }

    // Throws CLI::ConfigError with file and line.
    std::vector<CLI::ConfigItem> from_config(std::istream& in) const override;

    std::string to_flag(const CLI::ConfigItem& item) const override;
    std::string to_config(const CLI::App* /*app*/, bool /*defaults*/, bool /*help*/,
                          std::string /*prefix*/) const override
    {
        return "";
    }

    // What CLI11 says of an option, with the file and line that the option came from, if any.
    std::string placed(const std::string& fault) const;

  private:
    const CLI::App& app_;
    const std::set<std::string> secrets_;
    mutable size_t begun_ = 0;                          // files
    mutable std::map<std::string, std::string> places_; // option: file and line
};

} // namespace kelo_host

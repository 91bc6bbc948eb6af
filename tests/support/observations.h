// What observer.dll wrote about a process: the lines of its report by their first field, each
// without it and divided at its tabs. observer.cpp says what the fields are.
#pragma once

#include <filesystem>
#include <fstream>
#include <map>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

namespace corvane::testing {

using Fields = std::vector<std::string>;
using Observations = std::map<std::string, std::vector<Fields>>;

inline Observations read_observations(const std::filesystem::path& file) {
    std::ifstream stream(file, std::ios::binary);
    if (!stream) {
        throw std::runtime_error("there is no report " + file.string());
    }
    Observations observations;
    for (std::string line; std::getline(stream, line);) {
        std::istringstream rest(line);
        std::string kind;
        std::getline(rest, kind, '\t');
        Fields fields;
        for (std::string field; std::getline(rest, field, '\t');) {
            fields.push_back(field);
        }
        observations[kind].push_back(fields);
    }
    return observations;
}

} // namespace corvane::testing

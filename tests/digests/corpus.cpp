#include "digests/corpus.h"

#include <cinttypes>
#include <cstdio>
#include <fstream>

#include "support/failure.h"

namespace digests {
namespace {

/// Where the library and the model part on the way to a digest.
std::string first_difference(const std::string& name) {
    Digests of_library(name);
    Digests of_model(name);
    digest_all<model::Library>(of_library);
    digest_all<model::Scalar>(of_model);
    const Trace& library = of_library.trace();
    const Trace& model = of_model.trace();
    std::size_t of_case = 0;
    std::size_t first = 0; // of the case
    for (std::size_t i = 0; i < library.values.size() && i < model.values.size(); ++i) {
        if (library.values[i].of_case != of_case) {
            of_case = library.values[i].of_case;
            first = i;
        }
        if (library.values[i].bits != model.values[i].bits) {
            return library.cases[of_case] + ", value " + std::to_string(i - first) + " is 0x" +
                   hexadecimal(library.values[i].bits) + ", the model gives 0x" +
                   hexadecimal(model.values[i].bits);
        }
    }
    if (library.values.size() != model.values.size()) {
        return "the library gives " + std::to_string(library.values.size()) +
               " values, the model " + std::to_string(model.values.size());
    }
    return "library and model of this build agree";
}

/// Telling where takes as long as all digests do.
constexpr int TOLD = 3;

} // namespace

template <class Side>
void digest_all(Digests& digests) {
    digest_products<Side>(digests);
    digest_elementwise<Side>(digests);
    digest_inverse<Side>(digests);
    digest_fixed3<Side>(digests);
    digest_kalman<Side>(digests);
    digest_tracker<Side>(digests);
    Digest& overall = digests["overall"];
    overall.begin("of the digests without a slash, in alphabetical order");
    for (const auto& [name, value] : digests.values()) {
        if (name.find('/') == std::string::npos && name != "overall") {
            overall.add(value);
        }
    }
}

IV_DIGESTS_OF(digest_all);

std::map<std::string, std::uint64_t> read(const std::string& path) {
    std::ifstream file(path);
    if (!file) {
        test::fail("cannot read " + path);
    }
    std::map<std::string, std::uint64_t> digests;
    for (std::string line; std::getline(file, line);) { // names may hold spaces
        const std::size_t space = line.rfind(' ');
        digests[line.substr(0, space)] = std::stoull(line.substr(space + 1), nullptr, 16);
    }
    return digests;
}

std::string hexadecimal(std::uint64_t value) {
    char text[17];
    std::snprintf(text, sizeof text, "%016" PRIx64, value);
    return text;
}

std::vector<std::string> differences(const std::map<std::string, std::uint64_t>& expected,
                                     const std::map<std::string, std::uint64_t>& actual) {
    std::vector<std::string> lines;
    int told = 0;
    for (const auto& [name, value] : actual) {
        const auto entry = expected.find(name);
        if (entry == expected.end()) {
            lines.push_back(name + " is not expected");
        } else if (entry->second != value) {
            lines.push_back(name + " differs" +
                            (told++ < TOLD ? ": " + first_difference(name) : ", too"));
        }
    }
    for (const auto& [name, value] : expected) {
        if (actual.count(name) == 0) {
            lines.push_back(name + " is missing");
        }
    }
    return lines;
}

} // namespace digests

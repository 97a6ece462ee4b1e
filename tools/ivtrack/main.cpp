// ivtrack: tracks detections of a file or a pipe with libiv, and shows how to host it.
#include <fcntl.h>
#include <fmt/format.h>
#include <libiv.h>
#include <unistd.h>

#include <csignal>
#include <iostream>
#include <new>
#include <sstream>

#include "commands.h"
#include "errors.h"
#include "output.h"
#include "text.h"

namespace ivtrack {
namespace {

// A file opened while a standard descriptor is closed would take its number, and messages would end
// up in it. Opened the wrong way round, /dev/null keeps the number and fails as a closed one does.
void reserve_standard_descriptors() {
    for (const int descriptor : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
        if (fcntl(descriptor, F_GETFD) == -1) {
            open("/dev/null", descriptor == STDIN_FILENO ? O_WRONLY : O_RDONLY);
        }
    }
}

/// Help and version go to standard output, complaints to standard error.
int report_parsing(const CLI::App& app, const CLI::ParseError& error) {
    std::ostringstream out;
    std::ostringstream complaint;
    if (app.exit(error, out, complaint) != 0) {
        std::cerr << "ivtrack: " << complaint.str();
        return EXIT_BAD_INPUT;
    }
    Output("-").write(out.str());
    return EXIT_SUCCESS;
}

int run(int argc, char** argv) {
    CLI::App app("Tracks objects: gives the detections of a video identities that last.",
                 "ivtrack");
    app.set_version_flag("--version", fmt::format("ivtrack {}.{}.{}", LIBIV_VERSION_MAJOR,
                                                  LIBIV_VERSION_MINOR, LIBIV_VERSION_PATCH));
    Options options;
    declare(app, options);
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        return report_parsing(app, error);
    }
    if (app.got_subcommand("track")) {
        track(options.track);
    } else if (app.got_subcommand("simulate")) {
        simulate(options.simulate);
    } else {
        draw(options.draw);
    }
    return EXIT_SUCCESS;
}

} // namespace
} // namespace ivtrack

int main(int argc, char** argv) {
    using namespace ivtrack;
    reserve_standard_descriptors();
    // A closed pipe is an error of write, to be told like any other.
    std::signal(SIGPIPE, SIG_IGN);
    try {
        return run(argc, argv);
    } catch (const BadInput& error) {
        complain(error.what());
        return EXIT_BAD_INPUT;
    } catch (const std::bad_alloc&) {
        complain("out of memory");
    } catch (const std::exception& error) {
        complain(error.what());
    }
    return EXIT_SYSTEM_FAILED;
}

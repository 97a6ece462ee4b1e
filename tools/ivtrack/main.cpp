// ivtrack: tracks detections of a file or a pipe with libiv, and shows how to host it.
#include <fcntl.h>
#include <unistd.h>

#include <csignal>
#include <new>
#include <optional>
#include <variant>

#include "commands.h"
#include "errors.h"
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

void run(const Options& options) {
    if (const auto* to_track = std::get_if<TrackOptions>(&options)) {
        track(*to_track);
    } else if (const auto* to_simulate = std::get_if<SimulateOptions>(&options)) {
        simulate(*to_simulate);
    } else {
        draw(std::get<DrawOptions>(options));
    }
}

} // namespace
} // namespace ivtrack

int main(int argc, char** argv) {
    using namespace ivtrack;
    reserve_standard_descriptors();
    // A closed pipe is an error of write, to be told like any other.
    std::signal(SIGPIPE, SIG_IGN);
    try {
        if (const std::optional<Options> options = parse(argc, argv)) {
            run(*options);
        }
        return EXIT_SUCCESS;
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

// The host of host.c in C++: what is done by hand there, iv::Tracker does here.
//
//     host_cpp samples/crossing/det/det.txt 1280
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <fstream>
#include <libiv.hpp>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

void print(int frame, iv::Span<const iv::Track> tracks) {
    for (const iv::Track& track : tracks) {
        const iv::Box& box = track.box;
        if (!track.is_coasting()) { // else nothing was detected: this is where the object was
            std::printf("%d,%d,%.3f,%.3f,%.3f,%.3f,%g,%d\n", frame, track.id, box.left, box.top,
                        box.right - box.left, box.bottom - box.top,
                        static_cast<double>(track.score), static_cast<int>(track.class_number));
        }
    }
}

/// Reads "frame,id,left,top,width,height,score,class,..."; false at the end.
bool read(std::istream& file, int& frame, iv::Detection& detection) {
    std::string row;
    std::getline(file, row);
    std::istringstream columns(row);
    double id, width, height;
    char comma;
    iv::Box& box = detection.box;
    columns >> frame >> comma >> id >> comma >> box.left >> comma >> box.top >> comma >> width >>
        comma >> height >> comma >> detection.score >> comma >> detection.class_number;
    box.right = box.left + width;
    box.bottom = box.top + height;
    return static_cast<bool>(columns);
}

void track(std::istream& file, double image_width) {
    iv::TrackerOptions options;
    options.width = image_width;
    auto tracker = iv::Tracker::create(options);

    std::vector<iv::Detection> detections;
    iv::Detection detection;
    int latest = 1;
    for (int frame; read(file, frame, detection);) {
        for (; latest < frame; ++latest) {
            print(latest, tracker.process(detections)); // also when nothing was detected
            detections.clear();
        }
        detections.push_back(detection);
    }
    print(latest, tracker.process(detections));
}

} // namespace

int main(int argc, char** argv) {
    if (argc != 3) {
        std::fprintf(stderr, "usage: %s DETECTIONS IMAGE_WIDTH\n", argv[0]);
        return 2;
    }
    try {
        std::ifstream file(argv[1]);
        if (!file) {
            throw std::runtime_error(std::string(argv[1]) + " cannot be read");
        }
        track(file, std::atof(argv[2]));
    } catch (const std::exception& error) {
        std::fprintf(stderr, "%s\n", error.what());
        return 1;
    }
}

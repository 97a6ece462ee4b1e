// The command simulate: people and cars on a plane in perspective, and what a detector makes of
// them.
//
// Only + - * / and exact functions take part, so that every compiler and processor gives the same
// bytes.
#include <fmt/format.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstring>
#include <filesystem>
#include <iterator>
#include <string>
#include <vector>

#include "commands.h"
#include "detections.h"
#include "errors.h"
#include "output.h"
#include "random.h"
#include "text.h"

namespace ivtrack {
namespace {

/// A kind of object: sizes in image heights where the ground meets the lower edge of the image,
/// speeds in object heights a second.
struct Kind {
    std::int64_t class_number;
    double height;
    double aspect; ///< width over height
    double speed;
    double turns; ///< changes of mind a second
};

constexpr Kind PERSON{1, 0.55, 0.4, 0.8, 0.25};
constexpr Kind CAR{2, 0.33, 2.1, 2.2, 0.05};
constexpr double CAR_SHARE = 0.35;

// Lines of the scene, in image heights from the top.
constexpr double HORIZON = 0.25;
constexpr double FARTHEST_FOOT = 0.45;
constexpr double NEAREST_FOOT = 0.95;

// An object of which less than this is to be seen is not detected.
constexpr double LEAST_VISIBILITY = 0.3;

struct Object {
    const Kind* kind;
    int id;
    double x;     ///< centre, in pixels
    double foot;  ///< line on which it stands, in pixels from the top
    double size;  ///< 1: as tall as its kind
    double pace;  ///< 1: as fast as its kind, to the right
    double aim;   ///< pace that it is working up to
    double drift; ///< of the foot line, in pixels a frame
    int absence;  ///< frames until it comes in
};

class Scene {
  public:
    explicit Scene(const SimulateOptions& options)
        : options_(options), random_(options.seed), width_(options.width), height_(options.height) {
        for (int n = 0; n < options.objects; ++n) {
            objects_.push_back(new_object());
            objects_.back().x = random_.uniform(0, width_);
            objects_.back().absence = 0;
        }
    }

    void step() {
        for (Object& object : objects_) {
            if (object.absence > 0) {
                --object.absence;
                continue;
            }
            move(object);
            const Box box = box_of(object);
            const bool outside = box.right < 0 || box.left > width_;
            if (outside && (box.left > width_) == (object.pace > 0)) {
                object = new_object();
            }
        }
    }

    /// Writes the rows of one frame.
    void append_rows(int frame, std::string& truth, std::string& detections) {
        std::vector<const Object*> near_first;
        for (const Object& object : objects_) {
            if (object.absence == 0) {
                near_first.push_back(&object);
            }
        }
        std::stable_sort(near_first.begin(), near_first.end(),
                         [](const Object* a, const Object* b) { return a->foot > b->foot; });
        std::vector<Box> nearer;
        for (const Object* object : near_first) {
            const Box box = box_of(*object);
            const double visibility = visible_part(box, nearer);
            nearer.push_back(box);
            if (visibility > 0) {
                append_truth(frame, *object, box, visibility, truth);
            }
            if (visibility >= LEAST_VISIBILITY && !random_.chance(options_.miss)) {
                const double score = 0.5 + 0.45 * visibility + 0.05 * random_.noise();
                append_detection(frame, *object->kind, jittered(box), score, detections);
            }
        }
        if (random_.chance(options_.false_alarms)) {
            const Object ghost = new_ghost();
            const double score = random_.uniform(0.3, 0.7);
            append_detection(frame, *ghost.kind, box_of(ghost), score, detections);
        }
    }

  private:
    Object new_object() {
        Object object = new_ghost();
        object.id = ++latest_id_;
        object.x = object.pace > 0 ? -half_width(object) : width_ + half_width(object);
        object.absence = static_cast<int>(random_.uniform(0, 2 * options_.fps));
        return object;
    }

    /// An object anywhere, without an identity.
    Object new_ghost() {
        Object ghost{};
        ghost.kind = random_.chance(CAR_SHARE) ? &CAR : &PERSON;
        ghost.foot = random_.uniform(FARTHEST_FOOT, NEAREST_FOOT) * height_;
        ghost.size = random_.uniform(0.85, 1.15);
        // Two statements: the operands of one could be drawn in either order.
        const double direction = random_.chance(0.5) ? 1 : -1;
        ghost.pace = direction * random_.uniform(0.6, 1.4);
        ghost.aim = ghost.pace;
        ghost.x = random_.uniform(0, width_);
        return ghost;
    }

    void move(Object& object) {
        const Kind& kind = *object.kind;
        if (random_.chance(kind.turns / options_.fps)) {
            object.aim = random_.uniform(0.2, 1.4) * (object.pace > 0 ? 1 : -1);
            object.drift = random_.noise() * 0.02 * height_ / options_.fps;
            // Now and then somebody turns round.
            if (kind.class_number == PERSON.class_number && random_.chance(0.2)) {
                object.aim = -object.aim;
            }
        }
        object.pace += (object.aim - object.pace) * 2 / options_.fps;
        object.x += object.pace * kind.speed * tall(object) / options_.fps;
        object.foot += object.drift;
        if (object.foot < FARTHEST_FOOT * height_ || object.foot > NEAREST_FOOT * height_) {
            object.drift = -object.drift;
            object.foot += object.drift;
        }
    }

    /// Height in pixels: it shrinks toward the horizon.
    double tall(const Object& object) const {
        const double nearness = (object.foot / height_ - HORIZON) / (1 - HORIZON);
        return object.kind->height * height_ * nearness * object.size;
    }

    double half_width(const Object& object) const { return tall(object) * object.kind->aspect / 2; }

    Box box_of(const Object& object) const {
        const double half = half_width(object);
        return {object.x - half, object.foot - tall(object), object.x + half, object.foot};
    }

    /// The share of the box inside the image and not behind a nearer one, counted on a grid.
    double visible_part(const Box& box, const std::vector<Box>& nearer) const {
        constexpr int COLUMNS = 12;
        constexpr int ROWS = 12;
        int visible = 0;
        for (int row = 0; row < ROWS; ++row) {
            const double y = box.top + (box.bottom - box.top) * (row + 0.5) / ROWS;
            for (int column = 0; column < COLUMNS; ++column) {
                const double x = box.left + (box.right - box.left) * (column + 0.5) / COLUMNS;
                const auto covers = [x, y](const Box& other) {
                    return other.left <= x && x < other.right && other.top <= y && y < other.bottom;
                };
                visible += covers(image()) && std::none_of(nearer.begin(), nearer.end(), covers);
            }
        }
        return static_cast<double>(visible) / (ROWS * COLUMNS);
    }

    Box image() const { return {0, 0, width_, height_}; }

    Box jittered(const Box& box) {
        const double x = options_.jitter * (box.right - box.left);
        const double y = options_.jitter * (box.bottom - box.top);
        const double left = box.left + x * random_.noise();
        const double top = box.top + y * random_.noise();
        return {left, top, std::max(left, box.right + x * random_.noise()),
                std::max(top, box.bottom + y * random_.noise())};
    }

    static void append_truth(int frame, const Object& object, const Box& box, double visibility,
                             std::string& rows) {
        fmt::format_to(std::back_inserter(rows), "{},{},{},1,{},{}\n", frame, object.id,
                       position(box), object.kind->class_number, hundredths(visibility));
    }

    /// A detector sees nothing of what lies outside the image.
    void append_detection(int frame, const Kind& kind, const Box& box, double score,
                          std::string& rows) const {
        const Box seen{std::clamp(box.left, 0.0, width_), std::clamp(box.top, 0.0, height_),
                       std::clamp(box.right, 0.0, width_), std::clamp(box.bottom, 0.0, height_)};
        fmt::format_to(std::back_inserter(rows), "{},-1,{},{},{},-1,-1\n", frame, position(seen),
                       hundredths(std::clamp(score, 0.05, 1.0)), kind.class_number);
    }

    static std::string position(const Box& box) {
        return fmt::format("{},{},{},{}", hundredths(box.left), hundredths(box.top),
                           hundredths(box.right - box.left), hundredths(box.bottom - box.top));
    }

    /// Two decimals are plenty; zero has no sign.
    static double hundredths(double value) { return std::floor(value * 100 + 0.5) / 100 + 0.0; }

    const SimulateOptions& options_;
    Random random_;
    double width_;
    double height_;
    std::vector<Object> objects_;
    int latest_id_ = 0;
};

void write_file(const std::filesystem::path& path, const std::string& text) {
    Output file(path.string());
    file.write(text);
    file.close();
}

void make_folder(const std::filesystem::path& path) {
    std::error_code error;
    std::filesystem::create_directories(path, error);
    if (error) {
        throw SystemFailure(fmt::format("cannot make the folder {}: {}",
                                        display_name(path.string(), ""), error.message()));
    }
}

} // namespace

void simulate(const SimulateOptions& options) {
    std::string truth;
    std::string detections;
    Scene scene(options);
    for (int frame = 1; frame <= options.frames; ++frame) {
        scene.append_rows(frame, truth, detections);
        scene.step();
    }
    const std::filesystem::path folder(options.folder);
    make_folder(folder / "det");
    make_folder(folder / "gt");
    write_file(folder / "det" / "det.txt", detections);
    write_file(folder / "gt" / "gt.txt", truth);
    write_file(
        folder / "seqinfo.ini",
        fmt::format("[Sequence]\nname=simulated-{}\nframeRate={}\nseqLength={}\nimWidth={}\n"
                    "imHeight={}\n",
                    options.seed, options.fps, options.frames, options.width, options.height));
}

} // namespace ivtrack

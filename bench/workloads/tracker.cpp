// A scene of N objects; time per object and frame, beside one step of a filter.

#include <array>
#include <cstring>

#include "libiv.hpp"
#include "model/tracker.h"
#include "operands.h"
#include "peers.h"
#include "session.h"

namespace bench {
namespace {

using Detection = std::array<float, 6>;
using Track = std::array<float, 8>;
using Frame = std::vector<Detection>; ///< ends with a row of class 0

constexpr float DISTANCE_GATE = 1.0f;
constexpr float OVERLAP_GATE = 0.3f;
constexpr int STABLE = 3;
constexpr int REMOVAL = 10;

/// One object for every 30 x 30 units; boxes of 12 to 30, 0.5 to 8 units a frame, reflected at the
/// walls; noise of half a unit, 5 % missed, 2 % false, two classes, in any order.
class Scene {
  public:
    explicit Scene(int objects) : side_(30.0f * std::sqrt(static_cast<float>(objects))) {
        for (int i = 0; i < objects; ++i) {
            const float angle = uniform(0.0f, 6.2831853f);
            const float speed = uniform(0.5f, 8.0f);
            objects_.push_back({i % 2 == 0 ? 1.0f : 2.0f, uniform(0.0f, side_),
                                uniform(0.0f, side_), speed * std::cos(angle),
                                speed * std::sin(angle), uniform(12.0f, 30.0f),
                                uniform(12.0f, 30.0f)});
        }
    }

    Frame next() {
        Frame frame;
        for (Object& object : objects_) {
            move(object.x, object.vx);
            move(object.y, object.vy);
            if (uniform(0.0f, 1.0f) >= 0.05f) {
                frame.push_back(seen(object));
            }
            if (uniform(0.0f, 1.0f) < 0.02f) {
                Object ghost = object;
                ghost.x = uniform(0.0f, side_);
                ghost.y = uniform(0.0f, side_);
                frame.push_back(seen(ghost));
            }
        }
        std::shuffle(frame.begin(), frame.end(), random_);
        frame.push_back({});
        return frame;
    }

  private:
    struct Object {
        float category, x, y, vx, vy, w, h;
    };

    float uniform(float low, float high) {
        return low + (high - low) * static_cast<float>(random_() % 65536) / 65536.0f;
    }

    void move(float& place, float& speed) {
        if (place + speed < 0.0f || place + speed > side_) {
            speed = -speed;
        }
        place += speed;
    }

    Detection seen(const Object& object) {
        const float x = object.x + uniform(-0.5f, 0.5f);
        const float y = object.y + uniform(-0.5f, 0.5f);
        const float w = (object.w + uniform(-0.5f, 0.5f)) / 2.0f;
        const float h = (object.h + uniform(-0.5f, 0.5f)) / 2.0f;
        return {object.category, x - w, y - h, x + w, y + h, 0.9f};
    }

    float side_;
    std::mt19937 random_;
    std::vector<Object> objects_;
};

/// Frames of a scene, forth and back without end, so that every object goes on without a jump.
class Film {
  public:
    explicit Film(int objects) {
        Scene scene(objects);
        const int length = std::clamp(20000 / objects, 24, 400);
        for (int i = 0; i < length; ++i) {
            frames_.push_back(scene.next());
        }
    }

    Frame& next() {
        const std::size_t last = frames_.size() - 1;
        const std::size_t place = step_++ % (2 * last);
        return frames_[place <= last ? place : 2 * last - place];
    }

    std::size_t length() const { return frames_.size(); }

  private:
    std::vector<Frame> frames_;
    std::size_t step_ = 0;
};

int capacity_for(int objects) {
    return 2 * objects + 16;
}

/// The library's tracker; the four model matrices that stay behind by contract do.
class Library {
  public:
    explicit Library(int capacity)
        : handle_(iv_tracker_create(640, 480, capacity, DISTANCE_GATE, OVERLAP_GATE, STABLE,
                                    REMOVAL, 0)) {}
    ~Library() {
        float none[1][6] = {};
        iv_tracker_set_params(handle_, DISTANCE_GATE, OVERLAP_GATE, STABLE, 0, 0);
        iv_tracker_process(handle_, none, nullptr);
        iv_tracker_release(handle_);
    }
    Library(const Library&) = delete;
    Library& operator=(const Library&) = delete;

    void process(Frame& frame, std::vector<Track>& tracks) {
        iv_tracker_process(handle_, reinterpret_cast<float(*)[6]>(frame.data()),
                           reinterpret_cast<float(*)[8]>(tracks.data()));
    }

  private:
    void* handle_;
};

class Model {
  public:
    explicit Model(int capacity)
        : tracker_(capacity, {DISTANCE_GATE, OVERLAP_GATE, STABLE, REMOVAL, 0}) {}

    void process(Frame& frame, std::vector<Track>& tracks) {
        tracker_.process(reinterpret_cast<const float(*)[6]>(frame.data()),
                         reinterpret_cast<float(*)[8]>(tracks.data()));
    }

  private:
    model::Tracker tracker_;
};

/// Both trackers on the same frames: every row equal to the bit.
void check_tracks(int objects) {
    Film film(objects);
    Library library(capacity_for(objects));
    Model model(capacity_for(objects));
    std::vector<Track> got(static_cast<std::size_t>(capacity_for(objects)));
    std::vector<Track> wanted = got;
    const std::size_t frames = objects > 1000 ? 6 : std::min<std::size_t>(film.length(), 60);
    std::size_t reported = 0;
    for (std::size_t i = 0; i < frames; ++i) {
        Frame& frame = film.next();
        library.process(frame, got);
        model.process(frame, wanted);
        if (std::memcmp(got.data(), wanted.data(), got.size() * sizeof(Track)) != 0) {
            throw std::runtime_error("libiv: tracks of frame " + std::to_string(i + 1) +
                                     " are not the model's");
        }
        for (std::size_t k = 0; k < wanted.size() && wanted[k][0] != -1.0f; ++k) {
            ++reported;
        }
    }
    if (reported < static_cast<std::size_t>(objects)) {
        throw std::runtime_error("the scene has hardly any tracks");
    }
}

template <class Tracker>
void enter_tracker(const char* name, Group group, int objects, Entrants& entrants) {
    const auto tracker = std::make_shared<Tracker>(capacity_for(objects));
    const auto film = std::make_shared<Film>(objects);
    std::vector<Track> tracks(static_cast<std::size_t>(capacity_for(objects)));
    for (int i = 0; i < 20; ++i) {
        tracker->process(film->next(), tracks); // until tracks come and go evenly
    }
    entrants.push_back(
        {name,
         group,
         repeat([tracker, film, tracks]() mutable { tracker->process(film->next(), tracks); }),
         {},
         1.0 / objects});
}

void measure_tracker(Row& row, const Effort& effort, int objects) {
    check_tracks(objects);
    Entrants entrants;
    enter_tracker<Library>("libiv", Group::LIBIV, objects, entrants);
    if (objects <= 1000) {
        enter_tracker<Model>("model", Group::BASELINE, objects, entrants);
    }
    for (const Entrant& entrant : everyone(tracker_filter())) {
        if (entrant.name.rfind("Eigen fixed", 0) == 0) {
            entrants.push_back(entrant);
        }
    }
    row.timings = measure(entrants, effort);
}

/// What iv::Tracker does, by hand: rows out of detections with classes from 0, tracks out of rows.
class ByHand {
  public:
    ByHand(int capacity, double image_width, double units)
        : units_per_pixel_(units / image_width),
          pixels_per_unit_(image_width / units),
          tracker_(capacity),
          rows_(static_cast<std::size_t>(capacity) + 1),
          output_(static_cast<std::size_t>(capacity)),
          tracks_(static_cast<std::size_t>(capacity)) {}

    iv::Span<const iv::Track> process(const std::vector<iv::Detection>& detections) {
        for (std::size_t n = 0; n < detections.size(); ++n) {
            const iv::Detection& detection = detections[n];
            rows_[n] = {static_cast<float>(detection.class_number + 1),
                        to_units(detection.box.left),
                        to_units(detection.box.top),
                        to_units(detection.box.right),
                        to_units(detection.box.bottom),
                        detection.score};
        }
        rows_[detections.size()][0] = 0.0f;
        tracker_.process(rows_, output_);
        std::size_t count = 0;
        for (; count < output_.size() && output_[count][0] != -1.0f; ++count) {
            const Track& row = output_[count];
            tracks_[count] = {
                static_cast<int>(row[0]),
                static_cast<int>(row[1]) - 1,
                {to_pixels(row[2]), to_pixels(row[3]), to_pixels(row[4]), to_pixels(row[5])},
                row[6],
                static_cast<int>(row[7])};
        }
        return {tracks_.data(), count};
    }

  private:
    float to_units(double pixels) const { return static_cast<float>(pixels * units_per_pixel_); }
    double to_pixels(float units) const { return static_cast<double>(units) * pixels_per_unit_; }

    double units_per_pixel_, pixels_per_unit_;
    Library tracker_;
    Frame rows_;
    std::vector<Track> output_;
    std::vector<iv::Track> tracks_;
};

/// The same film as detections in pixels.
std::vector<std::vector<iv::Detection>> detections_of(Film& film, double pixels_per_unit) {
    std::vector<std::vector<iv::Detection>> frames;
    for (std::size_t i = 0; i < 2 * (film.length() - 1); ++i) {
        frames.emplace_back();
        const Frame& frame = film.next();
        for (const Detection& row : frame) {
            const auto pixels = [&](std::size_t column) {
                return static_cast<double>(row[column]) * pixels_per_unit;
            };
            if (row[0] != 0.0f) {
                frames.back().push_back({static_cast<int>(row[0]) - 1,
                                         {pixels(1), pixels(2), pixels(3), pixels(4)},
                                         row[5]});
            }
        }
    }
    return frames;
}

/// iv::Tracker and the C calls that do the same by hand, in frames; both on the same detections.
void measure_wrapper(Row& row, const Effort& effort, int objects) {
    iv::TrackerOptions options;
    options.width = 1920;
    options.units = 64;
    options.capacity = capacity_for(objects);
    options.tuning.overlap = OVERLAP_GATE;
    options.tuning.removal = REMOVAL;
    Film film(objects);
    const auto frames = std::make_shared<const std::vector<std::vector<iv::Detection>>>(
        detections_of(film, options.width / options.units));
    const auto wrapper = std::make_shared<iv::Tracker>(iv::Tracker::create(options));
    const auto by_hand = std::make_shared<ByHand>(options.capacity, options.width, options.units);
    for (const auto& frame : *frames) {
        const auto got = wrapper->process(frame);
        const auto wanted = by_hand->process(frame);
        if (got.size() != wanted.size() ||
            !std::equal(got.begin(), got.end(), wanted.begin(),
                        [](const iv::Track& a, const iv::Track& b) {
                            return a.id == b.id && a.class_number == b.class_number &&
                                   a.box.left == b.box.left && a.detection == b.detection;
                        })) {
            throw std::runtime_error("libiv: tracks of iv::Tracker are not those of the C calls");
        }
    }
    const auto play = [&](const char* name, Group group, auto tracker) {
        return Entrant{name, group, repeat([=, step = std::size_t{0}]() mutable {
                           tracker->process((*frames)[step++ % frames->size()]);
                       })};
    };
    row.timings = measure(
        {play("iv::Tracker", Group::LIBIV, wrapper), play("C calls", Group::RUN_TIME, by_hand)},
        effort);
}

} // namespace

void add_tracker(Session& session) {
    Row wrapper{"wrapper/50", 0};
    // Within 5 % of the C calls, or half a microsecond.
    wrapper.demands = {{1 / 1.05, 1 / 1.02, {"C calls"}, 500.0}};
    session.add(wrapper, [](Row& r, const Effort& effort) { measure_wrapper(r, effort, 50); });
    for (const int n : {5, 10, 20, 50, 100, 300, 1000, 3000, 10000}) {
        Row row{"tracker/" + std::to_string(n), 0};
        // At most so many times one predict and correct of a filter made for its size.
        if (n == 20) {
            row.demands = {{1 / 1.3, 1 / 0.6}};
        } else if (n == 300) {
            row.demands = {{1 / 1.4, 1 / 0.85}};
        } else if (n == 3000) {
            row.demands = {{1 / 2.0, 1 / 1.0}};
        }
        session.add(row, [n](Row& r, const Effort& effort) { measure_tracker(r, effort, n); });
    }
}

} // namespace bench

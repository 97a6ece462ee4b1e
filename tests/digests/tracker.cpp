#include "digests/corpus.h"
#include "model/scene.h"

namespace digests {
namespace {

using test::Random;
using test::Rows;

constexpr model::Parameters USUAL = {1.0f, 0.1f, 3, 12, 0};

template <class Tracking>
void take_frame(Digest& digest, Tracking& tracker, const Rows& rows,
                std::vector<std::array<float, 8>>& output) {
    tracker.process(reinterpret_cast<const float(*)[6]>(rows.data()),
                    reinterpret_cast<float(*)[8]>(output.data()));
    for (const auto& row : output) {
        digest.add(row[0]);
        if (row[0] == -1.0f) {
            break;
        }
        for (const float value : row) {
            digest.add(value);
        }
    }
}

/// Random scenes with random parameters, which change now and then.
template <class Side>
void random_scenes(Digests& digests, const std::string& name, std::uint64_t seed, int rounds,
                   float hostile, float changes) {
    Random random(seed);
    for (int round = 0; round < rounds; ++round) {
        const int capacity = random.between(2, 30);
        const int objects = random.between(1, 12);
        test::Scene scene(random, objects, capacity, hostile);
        typename Side::Tracking tracker(capacity, test::random_parameters(random));
        std::vector<std::array<float, 8>> output(static_cast<std::size_t>(capacity));
        for (int frame = 0; frame < 60; ++frame) {
            if (random.chance(changes)) {
                tracker.set_params(test::random_parameters(random));
            }
            digests[name].begin(round_of(round) + ", frame " + std::to_string(frame));
            take_frame(digests[name], tracker, scene.next_frame(), output);
        }
    }
}

struct Object {
    float category, x, y, w, h, vx, vy;
    int age, life;
};

/// The detections of objects, each edge with noise, ended by a row of class 0.
Rows seen(Random& random, const std::vector<Object>& objects, float noise, float miss,
          int capacity) {
    Rows rows;
    for (const Object& o : objects) {
        const float left = o.x + random.uniform(-noise, noise);
        const float top = o.y + random.uniform(-noise, noise);
        const float score = random.uniform(0.0f, 1.0f);
        if (!random.chance(miss)) {
            rows.push_back({o.category, left, top, left + o.w, top + o.h, score});
        }
    }
    rows.resize(std::max(rows.size(), static_cast<std::size_t>(capacity)) + 1);
    return rows;
}

/// Runs a scene of which `advance(objects, frame)` makes each frame.
template <class Side, class Advance>
void scene(Digests& digests, const std::string& name, int capacity, int frames, int first_id,
           float miss, Advance advance) {
    Digest& digest = digests["tracker/" + name];
    Random random(0x1234);
    typename Side::Tracking tracker(capacity, USUAL);
    tracker.set_next_id(first_id);
    std::vector<Object> objects;
    std::vector<std::array<float, 8>> output(static_cast<std::size_t>(capacity));
    for (int frame = 0; frame < frames; ++frame) {
        for (Object& o : objects) {
            o.x = o.x + o.vx;
            o.y = o.y + o.vy;
            ++o.age;
        }
        advance(random, objects, frame);
        digest.begin("frame " + std::to_string(frame));
        take_frame(digest, tracker, seen(random, objects, 0.2f, miss, capacity), output);
    }
}

/// Two rows and two columns that meet in the middle of the scene.
template <class Side>
void crossings(Digests& digests) {
    scene<Side>(digests, "crossings", 40, 120, 1, 0.05f,
                [](Random&, std::vector<Object>& objects, int frame) {
                    for (int i = 0; frame == 0 && i < 8; ++i) {
                        const float at = 4.0f * static_cast<float>(i);
                        const float speed = 0.5f + 0.125f * static_cast<float>(i % 3);
                        const float category = static_cast<float>(1 + i % 2);
                        objects.push_back({category, 0.0f, at, 3, 4, speed, 0.0f, 0, 0});
                        objects.push_back({category, 64.0f, at, 3, 4, -speed, 0.0f, 0, 0});
                        objects.push_back({1.0f, at + 18.0f, -30.0f, 2, 5, 0.0f, speed, 0, 0});
                        objects.push_back({1.0f, at + 18.0f, 60.0f, 2, 5, 0.0f, -speed, 0, 0});
                    }
                });
}

/// More tracks than are scanned one by one, close to each other.
template <class Side>
void crowd(Digests& digests) {
    scene<Side>(
        digests, "dense crowd", 160, 20, 1, 0.1f,
        [](Random& random, std::vector<Object>& objects, int frame) {
            while (frame == 0 && objects.size() < 120) {
                objects.push_back({static_cast<float>(random.between(1, 2)),
                                   random.uniform(-30.0f, 40.0f), random.uniform(-30.0f, 40.0f),
                                   random.uniform(2.0f, 6.0f), random.uniform(2.0f, 6.0f), 0.0f,
                                   0.0f, 0, 0});
            }
            for (Object& o : objects) {
                o.vx = random.uniform(-0.5f, 0.5f);
                o.vy = random.uniform(-0.5f, 0.5f);
            }
        });
}

/// Objects come and go, more than there is room for at times.
template <class Side>
void births_and_deaths(Digests& digests, const std::string& name, int first_id) {
    scene<Side>(digests, name, 24, 150, first_id, 0.03f,
                [](Random& random, std::vector<Object>& objects, int) {
                    std::vector<Object> alive;
                    for (const Object& o : objects) {
                        if (o.age < o.life) {
                            alive.push_back(o);
                        }
                    }
                    for (int born = random.between(0, 4); born > 0; --born) {
                        alive.push_back({static_cast<float>(random.between(1, 3)),
                                         random.uniform(0.0f, 90.0f), random.uniform(0.0f, 60.0f),
                                         random.uniform(1.0f, 8.0f), random.uniform(1.0f, 8.0f),
                                         random.uniform(-1.0f, 1.0f), random.uniform(-1.0f, 1.0f),
                                         0, random.between(1, 20)});
                    }
                    objects = alive;
                });
}

} // namespace

template <class Side>
void digest_tracker(Digests& digests) {
    constexpr int last_id = 1048574;
    random_scenes<Side>(digests, "tracker_process", 0x6006, 15, 0.0f, 0.03f);
    random_scenes<Side>(digests, "tracker_process_hostile", 0x6006, 15, 0.08f, 0.03f);
    random_scenes<Side>(digests, "tracker/very hostile", 0x6116, 15, 0.3f, 0.03f);
    random_scenes<Side>(digests, "tracker/parameters changed", 0x6226, 15, 0.01f, 0.4f);
    crossings<Side>(digests);
    crowd<Side>(digests);
    births_and_deaths<Side>(digests, "births and deaths", 1);
    births_and_deaths<Side>(digests, "ids past the last", last_id - 20);
}

IV_DIGESTS_OF(digest_tracker);

} // namespace digests

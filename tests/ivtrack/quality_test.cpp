// How well the tracker does on invented scenes, beside what stands in a file. Scenes and tracks are
// the same on every machine, so the counts are, too.
#include <fmt/format.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <map>
#include <set>
#include <tuple>

#include "program.h"

namespace test {
namespace {

struct Box {
    double left, top, right, bottom;
};

/// An object of the truth or a track, in one frame.
struct Row {
    int id;
    std::string category;
    Box box;
};

double overlap(const Box& a, const Box& b) {
    const double w = std::min(a.right, b.right) - std::max(a.left, b.left);
    const double h = std::min(a.bottom, b.bottom) - std::max(a.top, b.top);
    const double common = w > 0 && h > 0 ? w * h : 0;
    const auto area = [](const Box& box) {
        return (box.right - box.left) * (box.bottom - box.top);
    };
    return common / (area(a) + area(b) - common);
}

/// Rows by frame, if `counts` says so of their columns.
template <class Counts>
std::map<int, std::vector<Row>> rows_by_frame(const std::string& text, Counts counts) {
    std::map<int, std::vector<Row>> frames;
    for (const auto& row : rows_of(text)) {
        if (counts(row)) {
            const double left = std::stod(row.at(2));
            const double top = std::stod(row.at(3));
            frames[std::stoi(row.at(0))].push_back(
                {std::stoi(row.at(1)),
                 row.at(7),
                 {left, top, left + std::stod(row.at(4)), top + std::stod(row.at(5))}});
        }
    }
    return frames;
}

struct Quality {
    std::size_t objects; ///< that are seen at all
    std::size_t tracks;
    int rows;     ///< of objects, as many as an ideal tracker would report
    int misses;   ///< rows of objects without a track
    int strays;   ///< rows of tracks without an object
    int switches; ///< an object goes on with another track than before
};

/// Objects and tracks belong together while they are of one class and overlap by half; of those that
/// did not belong to anything in the frame before, the pairs that overlap most come first.
Quality judge(const std::map<int, std::vector<Row>>& truth,
              const std::map<int, std::vector<Row>>& tracks) {
    constexpr double belongs = 0.5;
    Quality quality{};
    std::set<int> objects, ids, frames;
    std::map<int, int> latest;  // track of each object
    std::map<int, int> current; // the same, of the frame before
    for (const auto& [frame, rows] : truth) {
        frames.insert(frame);
        quality.rows += static_cast<int>(rows.size());
    }
    for (const auto& [frame, rows] : tracks) {
        frames.insert(frame);
        for (const Row& row : rows) {
            ids.insert(row.id);
        }
        quality.strays += static_cast<int>(rows.size());
    }
    const auto rows_in = [](const std::map<int, std::vector<Row>>& all, int frame) {
        const auto rows = all.find(frame);
        return rows == all.end() ? std::vector<Row>{} : rows->second;
    };
    for (const int frame : frames) {
        struct Pair {
            bool is_new;
            double apart;
            int object, track;
        };
        std::vector<Pair> pairs;
        for (const Row& object : rows_in(truth, frame)) {
            objects.insert(object.id);
            const auto before = current.find(object.id);
            for (const Row& track : rows_in(tracks, frame)) {
                const double common = overlap(object.box, track.box);
                if (object.category == track.category && common >= belongs) {
                    const bool goes_on = before != current.end() && before->second == track.id;
                    pairs.push_back({!goes_on, 1 - common, object.id, track.id});
                }
            }
        }
        std::sort(pairs.begin(), pairs.end(), [](const Pair& a, const Pair& b) {
            return std::tie(a.is_new, a.apart, a.object, a.track) <
                   std::tie(b.is_new, b.apart, b.object, b.track);
        });
        std::set<int> taken;
        current.clear();
        for (const Pair& pair : pairs) {
            if (current.count(pair.object) == 0 && taken.insert(pair.track).second) {
                current[pair.object] = pair.track;
                const auto known = latest.find(pair.object);
                quality.switches += known != latest.end() && known->second != pair.track;
                latest[pair.object] = pair.track;
            }
        }
        quality.misses += static_cast<int>(rows_in(truth, frame).size() - current.size());
        quality.strays -= static_cast<int>(current.size());
    }
    quality.objects = objects.size();
    quality.tracks = ids.size();
    return quality;
}

/// Makes a scene, tracks it and judges the tracks by the truth.
Quality quality_of(const std::string& options) {
    Folder folder;
    Arguments make{"simulate", folder / "s"};
    for (std::size_t at = 0; at < options.size();) {
        const std::size_t end = std::min(options.find(' ', at), options.size());
        make.push_back(options.substr(at, end - at));
        at = end + 1;
    }
    const Result made = run(make);
    EXPECT_EQ(made.status, 0) << made.err;
    const Result tracked = run({"track", "--quiet", folder / "s/det/det.txt"});
    EXPECT_EQ(tracked.status, 0) << tracked.err;
    // What the detector of the scene cannot see is nobody's miss.
    const auto visible = [](const std::vector<std::string>& row) {
        return std::stod(row.at(8)) >= 0.3;
    };
    const auto any = [](const std::vector<std::string>&) { return true; };
    return judge(rows_by_frame(read_file(folder / "s/gt/gt.txt"), visible),
                 rows_by_frame(tracked.out, any));
}

/// The scenes, by what they are made with: the sample, an easy one, a crowd, a bad detector, a slow
/// camera, and a long run.
constexpr const char* SCENES[] = {
    "--frames 200 --objects 8 --seed 4",
    "--frames 300 --objects 4 --seed 11 --miss 0 --false-alarms 0 --jitter 0.01",
    "--frames 200 --objects 30 --seed 12",
    "--frames 300 --objects 8 --seed 13 --miss 0.3 --false-alarms 0.5 --jitter 0.06",
    "--frames 200 --objects 8 --seed 14 --fps 8",
    "--frames 1500 --objects 6 --seed 15",
};

std::string line_of(const char* scene, const Quality& q) {
    return fmt::format("{:>7} {:>6} {:>5} {:>6} {:>6} {:>8}  {}\n", q.objects, q.tracks, q.rows,
                       q.misses, q.strays, q.switches, scene);
}

/// LIBIV_WRITE_QUALITY names a file to write the counts to: a change of the tracker that is meant
/// renews them.
TEST(IvtrackQuality, CountsOnInventedScenesAreThoseOfTheFile) {
    std::string counts = "objects tracks  rows misses strays switches  ivtrack simulate\n";
    for (const char* scene : SCENES) {
        counts += line_of(scene, quality_of(scene));
    }
    if (const char* path = std::getenv("LIBIV_WRITE_QUALITY")) {
        std::ofstream file(path);
        ASSERT_TRUE((file << counts).flush()) << "cannot write " << path;
        GTEST_SKIP() << "wrote " << path;
    }
    EXPECT_EQ(lines_of(read_file(LIBIV_QUALITY)), lines_of(counts));
}

Row row_at(int id, double left, const std::string& category = "1") {
    return {id, category, {left, 0, left + 10, 10}};
}

TEST(IvtrackQuality, AnObjectThatGoesOnWithAnotherTrackIsOneSwitch) {
    const Quality q = judge({{1, {row_at(1, 0)}}, {2, {row_at(1, 0)}}, {3, {row_at(1, 0)}}},
                            {{1, {row_at(7, 0)}}, {2, {row_at(8, 0)}}, {3, {row_at(8, 0)}}});
    EXPECT_EQ(q.switches, 1);
    EXPECT_EQ(q.tracks, 2u);
    EXPECT_EQ(q.objects, 1u);
    EXPECT_EQ(q.misses, 0);
    EXPECT_EQ(q.strays, 0);
}

TEST(IvtrackQuality, ATrackKeepsItsObjectThoughAnotherIsNearer) {
    const Quality q = judge({{1, {row_at(1, 0)}}, {2, {row_at(1, 0), row_at(2, 2)}}},
                            {{1, {row_at(7, 0)}}, {2, {row_at(7, 2)}}});
    EXPECT_EQ(q.switches, 0);
    EXPECT_EQ(q.misses, 1);
    EXPECT_EQ(q.strays, 0);
}

TEST(IvtrackQuality, WhatOverlapsByLessThanHalfOrIsOfAnotherClassIsAMissAndAStray) {
    const Quality q = judge({{1, {row_at(1, 0)}}, {2, {row_at(1, 0)}}},
                            {{1, {row_at(7, 4)}}, {2, {row_at(7, 0, "2")}}});
    EXPECT_EQ(q.rows, 2);
    EXPECT_EQ(q.misses, 2);
    EXPECT_EQ(q.strays, 2);
    EXPECT_EQ(q.switches, 0);
}

} // namespace
} // namespace test

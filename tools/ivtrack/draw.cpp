// The command draw: where every identity went, as one picture.
#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <iterator>
#include <limits>
#include <map>
#include <string>
#include <vector>

#include "commands.h"
#include "errors.h"
#include "input.h"
#include "mot.h"
#include "output.h"
#include "text.h"

namespace ivtrack {
namespace {

/// Where an object stood: the middle of the lower edge of its box.
struct Point {
    std::int64_t frame;
    double x, y;
};

using Paths = std::map<std::int64_t, std::vector<Point>>;

/// A rectangle that has seen nothing yet.
struct Extent {
    double left = std::numeric_limits<double>::infinity();
    double top = left;
    double right = -left;
    double bottom = -left;

    void add(const Box& box) {
        left = std::min(left, box.left);
        top = std::min(top, box.top);
        right = std::max(right, box.right);
        bottom = std::max(bottom, box.bottom);
    }
    bool empty() const { return left > right; }
};

struct Tracks {
    Paths paths;
    Extent extent;
    std::int64_t first_frame = std::numeric_limits<std::int64_t>::max();
    std::int64_t last_frame = 0;
};

std::int64_t identity(const MotRow& row) {
    constexpr double LARGEST = 0x1p53;
    if (!(row.id >= 0 && row.id <= LARGEST) || std::floor(row.id) != row.id) {
        throw BadValue{fmt::format("{}", row.id), "an identity (an integer from 0) in column 2"};
    }
    return static_cast<std::int64_t>(row.id);
}

Tracks read_tracks(const std::string& path) {
    Input input(path, false);
    Tracks tracks;
    std::string line;
    while (input.next_line(line)) {
        try {
            const MotRow row = parse_mot_row(line);
            const std::int64_t id = identity(row);
            const Box& box = row.detection.box;
            tracks.paths[id].push_back({row.frame, (box.left + box.right) / 2, box.bottom});
            tracks.extent.add(box);
            tracks.first_frame = std::min(tracks.first_frame, row.frame);
            tracks.last_frame = std::max(tracks.last_frame, row.frame);
        } catch (const BadValue& bad) {
            input.reject(bad);
        }
    }
    for (auto& [id, points] : tracks.paths) {
        std::stable_sort(points.begin(), points.end(),
                         [](const Point& a, const Point& b) { return a.frame < b.frame; });
    }
    return tracks;
}

/// From pixels of the video to the canvas, which is always equally wide.
class Canvas {
  public:
    static constexpr double MARGIN = 24;
    static constexpr double HEADER = 64;
    static constexpr double PLOT_WIDTH = 960;

    Canvas(const DrawOptions& options, Extent extent) {
        if (extent.empty()) {
            extent = {0, 0, 1, 1};
        }
        // A stated size is that of an image, whose corner is at 0, 0.
        left_ = options.width ? 0 : extent.left;
        top_ = options.height ? 0 : extent.top;
        const double width = options.width.value_or(extent.right - left_);
        const double height = options.height.value_or(extent.bottom - top_);
        factor_ = PLOT_WIDTH / (width > 0 ? width : 1);
        // A canvas of any shape can be looked at within these limits.
        plot_height_ = std::clamp(height * factor_, 120.0, 4 * PLOT_WIDTH);
    }

    double x(double pixels) const { return MARGIN + (pixels - left_) * factor_; }
    double y(double pixels) const { return HEADER + (pixels - top_) * factor_; }
    double plot_height() const { return plot_height_; }
    double width() const { return PLOT_WIDTH + 2 * MARGIN; }
    double height() const { return HEADER + plot_height_ + MARGIN; }

  private:
    double left_, top_, factor_, plot_height_;
};

/// Hues a golden section of the circle apart: no two near ids look alike.
std::string color_of(std::int64_t id) {
    constexpr double GOLDEN_SECTION = 137.508;
    constexpr int LIGHTNESS[] = {38, 52, 30};
    const double turns = static_cast<double>(id % 3600) * GOLDEN_SECTION / 360;
    const double hue = (turns - static_cast<double>(static_cast<int>(turns))) * 360;
    return fmt::format("hsl({:.0f},70%,{}%)", hue, LIGHTNESS[id % 3]);
}

void append_line(std::string& svg, const Canvas& canvas, const Point* begin, const Point* end,
                 const char* style) {
    const auto out = std::back_inserter(svg);
    fmt::format_to(out, "<polyline class=\"{}\" points=\"", style);
    for (const Point* point = begin; point != end; ++point) {
        fmt::format_to(out, "{}{:.1f},{:.1f}", point == begin ? "" : " ", canvas.x(point->x),
                       canvas.y(point->y));
    }
    svg += "\"/>\n";
}

/// Full lines through frames in a row, dotted ones across frames without the identity.
void append_path(std::string& svg, const Canvas& canvas, std::int64_t id,
                 const std::vector<Point>& points) {
    const std::string color = color_of(id);
    const auto out = std::back_inserter(svg);
    fmt::format_to(out, "<g stroke=\"{0}\" fill=\"{0}\">\n", color);
    const Point* const end = points.data() + points.size();
    for (const Point* begin = points.data(); begin != end;) {
        const Point* next = begin + 1;
        while (next != end && next->frame - next[-1].frame <= 1) {
            ++next;
        }
        append_line(svg, canvas, begin, next, "seen");
        if (next != end) {
            append_line(svg, canvas, next - 1, next + 1, "unseen");
        }
        begin = next;
    }
    fmt::format_to(out, "<circle cx=\"{:.1f}\" cy=\"{:.1f}\" r=\"3\"/>\n</g>\n",
                   canvas.x(points.front().x), canvas.y(points.front().y));
}

/// The id at the end of its path, on the inner side of it where the image ends.
void append_label(std::string& svg, const Canvas& canvas, std::int64_t id, const Point& last) {
    const bool at_right_edge = canvas.x(last.x) > Canvas::MARGIN + Canvas::PLOT_WIDTH - 40;
    fmt::format_to(std::back_inserter(svg),
                   "<text class=\"id\" x=\"{:.1f}\" y=\"{:.1f}\" text-anchor=\"{}\" "
                   "fill=\"{}\">{}</text>\n",
                   canvas.x(last.x) + (at_right_edge ? -4 : 4),
                   std::max(canvas.y(last.y) - 4, Canvas::HEADER + 14),
                   at_right_edge ? "end" : "start", color_of(id), id);
}

void append_header(std::string& svg, const Canvas& canvas, const Tracks& tracks) {
    const auto out = std::back_inserter(svg);
    fmt::format_to(out,
                   "<svg xmlns=\"http://www.w3.org/2000/svg\" width=\"{0:.0f}\" height=\"{1:.0f}\" "
                   "viewBox=\"0 0 {0:.0f} {1:.0f}\">\n"
                   "<style>\n"
                   "text{{font-family:sans-serif;font-size:13px}}\n"
                   "polyline{{fill:none;stroke-width:2;stroke-linejoin:round;"
                   "stroke-linecap:round}}\n"
                   ".unseen{{stroke-width:1.5;stroke-dasharray:1 5}}\n"
                   ".id{{font-weight:bold;stroke:#fff;stroke-width:3;paint-order:stroke}}\n"
                   "</style>\n"
                   "<rect width=\"100%\" height=\"100%\" fill=\"#fff\"/>\n",
                   canvas.width(), canvas.height());
    const std::string frames =
        tracks.paths.empty()
            ? "no frames"
            : fmt::format("frames {} to {}", tracks.first_frame, tracks.last_frame);
    fmt::format_to(out,
                   "<text x=\"{0}\" y=\"26\" style=\"font-size:17px\">{1} identities, {2}</text>\n"
                   "<g transform=\"translate({0} 44)\" stroke=\"#555\" fill=\"#555\">\n"
                   "<circle cx=\"4\" cy=\"0\" r=\"3\"/>\n"
                   "<polyline class=\"seen\" points=\"150,0 180,0\"/>\n"
                   "<polyline class=\"unseen\" points=\"390,0 420,0\"/>\n"
                   "<g stroke=\"none\">\n"
                   "<text x=\"14\" y=\"4\">first frame</text>\n"
                   "<text x=\"188\" y=\"4\">middle of the lower edge</text>\n"
                   "<text x=\"428\" y=\"4\">frames without a box</text>\n"
                   "<text x=\"600\" y=\"4\"><tspan font-weight=\"bold\">7</tspan>  identity, at "
                   "its last frame</text>\n"
                   "</g>\n</g>\n",
                   Canvas::MARGIN, tracks.paths.size(), frames);
    fmt::format_to(out,
                   "<clipPath id=\"image\"><rect x=\"{0}\" y=\"{1}\" width=\"{2}\" "
                   "height=\"{3:.1f}\"/></clipPath>\n"
                   "<rect x=\"{0}\" y=\"{1}\" width=\"{2}\" height=\"{3:.1f}\" fill=\"#f6f6f2\" "
                   "stroke=\"#ccc\"/>\n",
                   Canvas::MARGIN, Canvas::HEADER, Canvas::PLOT_WIDTH, canvas.plot_height());
}

std::string picture(const DrawOptions& options, const Tracks& tracks) {
    const Canvas canvas(options, tracks.extent);
    std::string svg;
    append_header(svg, canvas, tracks);
    svg += "<g clip-path=\"url(#image)\">\n";
    for (const auto& [id, points] : tracks.paths) {
        append_path(svg, canvas, id, points);
    }
    for (const auto& [id, points] : tracks.paths) {
        append_label(svg, canvas, id, points.back());
    }
    return svg + "</g>\n</svg>\n";
}

} // namespace

void draw(const DrawOptions& options) {
    const Tracks tracks = read_tracks(options.input);
    refuse_same_file(options.input, options.output);
    Output output(options.output);
    output.write(picture(options, tracks));
    output.close();
}

} // namespace ivtrack

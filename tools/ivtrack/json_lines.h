// JSON lines: one object a frame.
#ifndef IVTRACK_JSON_LINES_H
#define IVTRACK_JSON_LINES_H

#include <cstdint>
#include <string>
#include <vector>

#include "detections.h"

namespace ivtrack {

/// One line
/// {"frame":1,"tracks":[{"id":1,"class":2,"box":[x1,y1,x2,y2],"score":0.9,"detection":0}]}; the
/// detection of a coasting track is null.
std::string format_json(std::int64_t frame, const std::vector<Track>& tracks);

} // namespace ivtrack

#endif

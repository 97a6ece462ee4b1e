// MOTChallenge text: one row an object and frame.
#ifndef IVTRACK_MOT_H
#define IVTRACK_MOT_H

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "detections.h"

namespace ivtrack {

struct MotRow {
    std::int64_t frame;
    double id; ///< anything in detections, which have no identity yet
    Detection detection;
};

/// Reads `frame,id,left,top,width,height,conf[,class,...]`; what it cannot use is a BadValue.
MotRow parse_mot_row(std::string_view line);

/// Rows `frame,id,left,top,width,height,conf,class,-1,-1`, one a track.
std::string format_mot(std::int64_t frame, const std::vector<Track>& tracks);

} // namespace ivtrack

#endif

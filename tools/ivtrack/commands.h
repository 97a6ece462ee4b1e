// What each command does. Each throws BadInput or SystemFailure when it cannot.
#ifndef IVTRACK_COMMANDS_H
#define IVTRACK_COMMANDS_H

#include "options.h"

namespace ivtrack {

/// Gives the detections of a file or a stream identities.
void track(const TrackOptions& options);

/// Writes an invented scene: DIR/det/det.txt, DIR/gt/gt.txt and DIR/seqinfo.ini.
void simulate(const SimulateOptions& options);

/// Draws the path of every identity of a file as a self-contained SVG.
void draw(const DrawOptions& options);

} // namespace ivtrack

#endif

// Cuts long rings into pieces that a lookup reads in a moment.
#pragma once

#include <cstddef>
#include <vector>

#include "grid.h"

namespace offlinetz {

// A ring as the box table enters it: the box of query points that it answers for, and the ring.
// Coordinates are true ones; the shift for the reader comes when they are written.
struct Piece {
    GridBox box;
    GridRing ring;
};

// Cuts a mended ring into pieces of at most about `maxPoints` points (0: the reader's limit).
//
// The pieces' boxes tile the box of the ring, widened by the reader's shift to hold the ring where
// it is stored: every grid point in it lies in exactly one, so no point falls between two pieces
// or counts twice. Within its box, and a margin around it for the reader's shift and rounding, a
// piece has every edge of the ring that comes there, whole: the reader classifies a point against
// the piece as against the ring, bit for bit, and points on a cut are like any other. Far from the
// box the piece runs along a frame instead of the ring.
//
// Every piece, also one for a part of the ring's box that the ring does not reach, runs along its
// box, close outside: the distance that the reader measures to a piece is never greater than the
// distance to the ring.
std::vector<Piece> CutRing(const GridRing& ring, size_t maxPoints);

}  // namespace offlinetz

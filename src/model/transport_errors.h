// The numbers the error header of the transport model (the Transport class, the pairs and the couplings file) prints ("line N"): one per
// kind of refusal, stable, so that recorded cases and users' scripts can tell
// the refusals apart. New refusals take a new number here.
#pragma once

namespace transport_error {

inline constexpr int kLineExists = 1710;  // pairs.cpp
inline constexpr int kLineOpen = 1720;  // pairs.cpp
inline constexpr int kLineSyntax = 1730;  // pairs.cpp
inline constexpr int kLineClasses = 1740;  // pairs.cpp
inline constexpr int kLineValue = 1750;  // pairs.cpp
inline constexpr int kLineCarrier = 1760;  // pairs.cpp: couplings of the other carrier
inline constexpr int kLineSearchRange = 855;  // transport.cpp: nei_scell out of bounds
inline constexpr int kLineSearchTooWide = 860;  // transport.cpp: too many atom pairs to test
inline constexpr int kLineNeighbours = 870;  // transport.cpp: NNEIMAX reached

}  // namespace transport_error

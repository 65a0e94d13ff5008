// The numbers the error header of the fileio module prints ("line N"): one per
// kind of refusal, stable, so that recorded cases and users' scripts can tell
// the refusals apart. New refusals take a new number here.
#pragma once

namespace fileio_error {

inline constexpr int kLineBadNumber = 1210;  // fileio.cpp
inline constexpr int kLineCifOpen = 1271;  // fileio_cif.cpp
inline constexpr int kLineCellAngle = 1283;  // fileio_cif.cpp
inline constexpr int kLineNoCell = 1284;  // fileio_cif.cpp
inline constexpr int kLineTooManyAtoms = 1290;  // fileio_cif.cpp
inline constexpr int kLineAtomColumns = 1296;  // fileio_cif.cpp
inline constexpr int kLineBondColumns = 1301;  // fileio_cif.cpp
inline constexpr int kLineMolOpen = 1396;  // fileio_mol.cpp
inline constexpr int kLineCounts = 1401;  // fileio_mol.cpp
inline constexpr int kLineNoInput = 1402;  // fileio.cpp
inline constexpr int kLineAtomList = 1406;  // fileio_mol.cpp
inline constexpr int kLineAtoms = 1413;  // fileio_mol.cpp
inline constexpr int kLineFlatCell = 1416;  // fileio.cpp
inline constexpr int kLineBondsFile = 1437;  // fileio.cpp
inline constexpr int kLineCellFile = 1452;  // fileio.cpp
inline constexpr int kLineNotBonded = 1553;  // fileio_sep.cpp

}  // namespace fileio_error

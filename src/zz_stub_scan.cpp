// TEMPORARY: placeholders until the angle scans land; delete with them.
#include "mob_utils.h"
void Mobutils::mob_plane_xy_xz_yz() {}
void Mobutils::mob_direction_all() {}

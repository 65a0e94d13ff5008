// Geometries for the quantum-chemistry tests.
#pragma once

#include <Eigen/Geometry>

#include "qc_engine.h"

namespace qctest {

// Ethylene (C=C 1.337 A, C-H 1.086 A) in the yz plane, centred on the origin.
inline qc::Geometry ethylene()
{
    return {{6, {0, 0, 0.6685}},           {6, {0, 0, -0.6685}},          {1, {0, 0.923274, 1.238289}},
            {1, {0, -0.923274, 1.238289}}, {1, {0, 0.923274, -1.238289}}, {1, {0, -0.923274, -1.238289}}};
}

// Every atom turned by `degrees` about `axis` through the origin, then shifted.
inline qc::Geometry moved(qc::Geometry g, const Eigen::Vector3d& shift, const Eigen::Vector3d& axis = Eigen::Vector3d::UnitZ(),
                          double degrees = 0)
{
    const Eigen::Matrix3d r = Eigen::AngleAxisd(degrees * units::kPi / 180, axis.normalized()).toRotationMatrix();
    for (qc::Atom& a : g) Eigen::Vector3d::Map(a.x.data()) = r * Eigen::Vector3d::Map(a.x.data()) + shift;
    return g;
}

inline qc::Geometry joined(qc::Geometry a, const qc::Geometry& b)
{
    a.insert(a.end(), b.begin(), b.end());
    return a;
}

}  // namespace qctest

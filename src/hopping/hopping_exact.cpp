// The exact long-time answer of a periodic hopping network. With Q the generator
// of the walk over the cell's molecules (Q_ij the summed rates of the hops i -> j
// to any cell), pi solves pi Q = 0, the drift is v = sum_i pi_i b_i with
// b_i = sum_e k_e r_e, and the corrector chi of the cell problem solves
// (Q chi)_i = -(b_i - v). Then X_t + chi(site) - v t is a martingale whose jumps
// are r_e + chi_j - chi_i, so that
//   D = 1/2 sum_i pi_i sum_e k_e (r_e + chi_j - chi_i)(r_e + chi_j - chi_i)^T.
#include <Eigen/Dense>

#include <algorithm>
#include <vector>

#include "hopping_network.h"
#include "hopping_errors.h"

using namespace hopping_error;

namespace network {

namespace {

const char* const kModule = "transport";
const char* const kApart =
    "molecule %d of the cell is not joined to molecule 1 by hops: the network falls apart into separate "
    "channels (give the couplings that join them, or simulate each channel with its own structure)\n";

// The molecules reached from molecule 0 over hops of positive rate; every hop
// has its reverse, so this is the network's one component when all are reached.
std::vector<char> reached(int molecules, const std::vector<Hop>& hops)
{
    std::vector<char> seen(static_cast<size_t>(molecules), 0);
    std::vector<int> todo = {0};
    seen[0] = 1;
    while (!todo.empty()) {
        const int i = todo.back();
        todo.pop_back();
        for (const Hop& h : hops)
            if (h.from == i && h.rate > 0 && !seen[h.to]) {
                seen[h.to] = 1;
                todo.push_back(h.to);
            }
    }
    return seen;
}

}  // namespace

Exact solve_exact(int molecules, const std::vector<Hop>& hops)
{
    const int n = molecules;
    const std::vector<char> seen = reached(n, hops);
    for (int m = 0; m < n; ++m)
        if (!seen[m]) fatal(kModule, kLineApart, 1, strprintf(kApart, m + 1));

    // The equations are solved in rates relative to the largest: per second they
    // are near 1e13, and beside the row of ones that normalises pi the solver
    // would lose five digits of it.
    double scale = 0;
    for (const Hop& h : hops) scale = std::max(scale, h.rate);
    Eigen::MatrixXd Q = Eigen::MatrixXd::Zero(n, n);
    Eigen::MatrixXd b = Eigen::MatrixXd::Zero(n, 3);
    for (const Hop& h : hops) {
        const double k = h.rate / scale;
        Q(h.from, h.to) += k;
        Q(h.from, h.from) -= k;
        for (int c = 0; c < 3; ++c) b(h.from, c) += k * h.r[c];
    }
    // pi Q = 0 with sum pi = 1: n + 1 equations for n unknowns, consistent.
    Eigen::MatrixXd A(n + 1, n);
    A.topRows(n) = Q.transpose();
    A.row(n).setOnes();
    Eigen::VectorXd rhs = Eigen::VectorXd::Zero(n + 1);
    rhs(n) = 1.0;
    const Eigen::VectorXd pi = A.colPivHouseholderQr().solve(rhs);
    const Eigen::RowVector3d v = pi.transpose() * b;

    // Q chi = -(b - v), fixed by sum pi chi = 0.
    Eigen::MatrixXd B(n + 1, n);
    B.topRows(n) = Q;
    B.row(n) = pi.transpose();
    Eigen::MatrixXd f = Eigen::MatrixXd::Zero(n + 1, 3);
    f.topRows(n) = -(b.rowwise() - v);
    const Eigen::MatrixXd chi = B.colPivHouseholderQr().solve(f);

    Exact e;
    e.pi.assign(pi.data(), pi.data() + n);
    e.drift = {v(0) * scale, v(1) * scale, v(2) * scale};
    for (int m = 0; m < n; ++m) e.chi.push_back({chi(m, 0), chi(m, 1), chi(m, 2)});
    for (const Hop& h : hops) {
        Vec3 jump;
        for (int k = 0; k < 3; ++k) jump[k] = h.r[k] + chi(h.to, k) - chi(h.from, k);
        for (int a = 0; a < 3; ++a)
            for (int c = 0; c < 3; ++c) e.D[a][c] += 0.5 * pi(h.from) * h.rate * jump[a] * jump[c];
    }
    return e;
}

Mat3 naive_diffusion(const std::vector<double>& pi, const std::vector<Hop>& hops)
{
    Mat3 d{};
    for (const Hop& h : hops)
        for (int a = 0; a < 3; ++a)
            for (int c = 0; c < 3; ++c) d[a][c] += 0.5 * pi[h.from] * h.rate * h.r[a] * h.r[c];
    return d;
}

}  // namespace network

// Mobility analysis: track files, average and axis mobility, the angle scans
// and their plot scripts.
#pragma once

#include <cstdio>
#include <string>
#include <vector>

#include "transport.h"

// Parses up to five numbers of a track line as "%lf%lf%lf%lf%lf" would into v,
// stopping at the first field that is no number (later fields keep their values).
void parse_track_line(const char* line, double* v);

class Mobutils : public Transport {
public:
    Mobutils();

    void set_flag_binfo(bool flag) { flag_binfo = flag; }
    void set_angle_delta(double delta) { angle_delta = delta; }
    void init();
    void readin_track_data();
    void output_mob_data(int mob_all);

    // ------------------------------------------------ analyses
    void mob_average();
    void mob_direction_a_b_c();
    void mob_plane_xy_xz_yz();
    void mob_direction_all();
    void mob_treat_plane_1pt(std::FILE* out, double angle, const Table& projsq, Table& resample,
                             std::vector<double>& mean, std::vector<double>& resample_mob,
                             double& mob, double& err);
    void mob_treat_1pt(double, double, const Table& projsq, Table& resample,
                       std::vector<double>& mean, std::vector<double>& resample_mob, double& mob,
                       double& err);

    // ------------------------------------------------ plot scripts
    void write_gnuplot_eps_script(const char* name, double max) const;
    void write_gnuplot_png_script(const char* name, double max) const;
    void write_pyplot_script(const char* name, double max) const;
    void write_gnuplot_eps_script_3D(const char* name, double max) const;
    void write_gnuplot_png_script_3D(const char* name, double max) const;
    void write_pyplot_script_3D(const char* name, double max) const;

    // ------------------------------------------------ analysis state: set by main and
    // readin_track_data, read by every analysis
    bool track_loaded = false;
    bool flag_binfo = false;
    std::vector<double> track_time;  // [ntime] time grid of the first track file
    Table track_x, track_y, track_z;  // [nsimu][ntime] carrier position, Angstrom
    Table track_r2;                   // [nsimu][ntime] squared displacement, Angstrom^2
    int nsamp = 100;                  // bootstrap resamples
    double angle_delta = 10.0;        // degrees; delta.inp may replace it

private:
    // -- scan internals (begin)
    // -- scan internals (end)
    void read_temp_override();
};

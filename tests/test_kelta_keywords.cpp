// Every keyword of the input file: what each default layer leaves in its field and
// what a line of the file writes there. The fields are dumped as text and compared
// with the recorded dumps in tests/data/keywords, each checked by hand against
// the keyword table of the README.
#include <gtest/gtest.h>

#include <set>
#include <sstream>

#include "kelta_inp.h"
#include "test_support.h"

using namespace testsupport;

namespace {

const std::filesystem::path kData = std::filesystem::path(KELTA_TEST_DATA) / "keywords";

template <class T>
std::string text(const T& v)
{
    std::ostringstream o;
    o.precision(12);
    if constexpr (std::is_same_v<T, std::string>)
        o << '"' << v << '"';
    else if constexpr (requires { v.begin(); })
        for (const auto& e : v) o << text(e) << ' ';
    else
        o << v;
    return o.str();
}

#define FIELD(f) out << #f " = " << text(k.f) << "\n"

std::string dump(const KeltaInp& k)
{
    std::ostringstream out;
    FIELD(do_transport_prepare); FIELD(do_transport_submit_HL_job); FIELD(do_transport_submit_RE_job);
    FIELD(do_transport_get_transferintegral); FIELD(do_transport_get_re_evc); FIELD(do_transport_run_MC);
    FIELD(do_transport_get_mob_MC); FIELD(do_transport_run_MC_temp); FIELD(do_transport_get_mob_MC_temp);
    FIELD(do_transport_run_ME); FIELD(do_transport_get_mob_ME); FIELD(do_transport_run_ME_temp);
    FIELD(do_transport_get_mob_ME_temp); FIELD(do_transport_gather_kelta_data);
    FIELD(mater_name); FIELD(job.module_mpich2); FIELD(job.module_mpich2_given); FIELD(job.module_qc);
    FIELD(job.module_qc_given); FIELD(job.qc_exe); FIELD(qc_memory); FIELD(get_run_memory());
    FIELD(job.qc_nodes); FIELD(job.qc_ppn); FIELD(qc_method); FIELD(qc_basis); FIELD(qc_basis_re);
    FIELD(job.queue_name); FIELD(job.sched_type); FIELD(job.sched_job_array); FIELD(job.nodelist);
    FIELD(start_temp); FIELD(end_temp); FIELD(delta_temp); FIELD(chargetype); FIELD(evc_type);
    FIELD(vec_a); FIELD(vec_b); FIELD(vec_c); FIELD(lat_cutoff); FIELD(scell_n); FIELD(super_cell);
    FIELD(bond_dis_scale); FIELD(temp); FIELD(maxt); FIELD(ratetype); FIELD(sta); FIELD(delta_angle);
    FIELD(tsimu); FIELD(tsnap); FIELD(seed); FIELD(tstep); FIELD(nsimu); FIELD(iterlimit); FIELD(nevery_out);
    FIELD(RE_unique_mol); FIELD(HL_unique_mol); FIELD(homo_adjustment); FIELD(lumo_adjustment);
    FIELD(mol_input_mode); FIELD(mol_count); FIELD(mol_names); FIELD(lat_site_energy);
    FIELD(output_level); FIELD(kelta_dat_file); FIELD(output_eigval); FIELD(get_compute_engine());
    FIELD(job.scratch); FIELD(eckart_mirror); FIELD(app_elec_F); FIELD(get_appE_flag()); FIELD(field_range);
    FIELD(field_range_on);
    FIELD(qc_inp_append); FIELD(input_read); FIELD(unique_RE_calc); FIELD(unique_uc_mol_one_calc);
    FIELD(unique_nei_mol_one_calc); FIELD(unique_2mol_calc);
    return out.str();
}

// The fields after reading `input` with the NAME=VALUE variables `env` set.
std::string read_dump(const std::string& input, const std::vector<std::string>& env = {})
{
    const ScratchDir dir;
    write_file("kelta.inp", input);
    for (const std::string& e : env) setenv(e.substr(0, e.find('=')).c_str(), e.substr(e.find('=') + 1).c_str(), 1);
    KeltaInp k;
    k.read_kelta_inp("kelta.inp", false);
    for (const std::string& e : env) unsetenv(e.substr(0, e.find('=')).c_str());
    return dump(k);
}

}  // namespace

TEST(Keywords, EveryLayerAndKeywordReachesItsField)
{
    const KeltaInp fresh;
    expect_recorded(kData / "constructed.txt", dump(fresh));
    expect_recorded(kData / "defaults.txt", read_dump(""));
    EXPECT_EQ(read_dump("&transport\napp_elec_F = 0 0 0\n/\n"), read_dump(""));  // a zero field, written out, is no field
    const std::string every = read_file(kData / "every_keyword.inp");
    expect_recorded(kData / "every_keyword.txt", read_dump(every));
    // The second spelling of a keyword sets the same field.
    EXPECT_EQ(read_dump(read_file(kData / "aliases.inp")), read_dump(every));
    const std::vector<std::string> env = {"KELTA_JOB_SCHED=slurm", "KELTA_JOB_QUEUE=long", "KELTA_QC_EXE=g16",
                                          "KELTA_QC_NODES=4x", "KELTA_QC_PPN=abc", "KELTA_MODULE_QC=g16/a03"};
    expect_recorded(kData / "environment.txt", read_dump("", env));
    // The file overrides the environment.
    EXPECT_EQ(read_dump(every, env), read_dump(every));
}

// The quirks of the block syntax, one file each in blocks/, seen through nsimu.
TEST(Keywords, HeadersCommentsAndBlocks)
{
    std::set<std::filesystem::path> files;
    for (const auto& e : std::filesystem::directory_iterator(kData / "blocks")) files.insert(e.path());
    std::string seen;
    for (const std::filesystem::path& f : files) {
        const std::string d = read_dump(read_file(f)), key = "\nnsimu = ";
        const size_t at = d.find(key) + key.size();
        seen += f.filename().string() + ": " + d.substr(at, d.find('\n', at) - at) + "\n";
    }
    expect_recorded(kData / "blocks.txt", seen);
}

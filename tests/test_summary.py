"""mob_summary.json against its schema and against the .dat files of the same run.

Usage: test_summary.py KELTA_MOB SOURCE_DIR. Two runs on the small working directory
of the recorded case bad_base: every analysis (scans, tensor), and the average and axes
alone with a warning. Each file must validate against docs/mob_summary.schema.json, and
each number must equal the one the .dat files print, to their printed precision.
Exits 77 (skipped) without Debian's python3-jsonschema.
"""
import json
import pathlib
import shutil
import subprocess
import sys
import tempfile

try:
    import jsonschema
except ImportError:
    print("python3-jsonschema is not installed: skipped")
    sys.exit(77)

exe, source = sys.argv[1], pathlib.Path(sys.argv[2])
schema = json.loads((source / "docs/mob_summary.schema.json").read_text())
jsonschema.Draft202012Validator.check_schema(schema)


def run(args, edit=None):
    work = pathlib.Path(tempfile.mkdtemp())
    shutil.copytree(source / "tests/data/cases/bad_base/in", work, dirs_exist_ok=True)
    if edit:
        (work / "kelta.inp").write_text(edit((work / "kelta.inp").read_text()))
    subprocess.run([exe, *args], cwd=work, check=True, capture_output=True)
    summary = json.loads((work / "mob_summary.json").read_text())
    jsonschema.validate(summary, schema, cls=jsonschema.Draft202012Validator)
    return work, summary


def same(printed, value, form):
    assert printed == form % value, (printed, form % value)


def words(path, key):
    return [line.split() for line in path.read_text().splitlines() if line.split()[:1] == [key]]


work, s = run(["-json", "-tensor", "-deltaa", "45"])
r = s["results"]
same((work / "mob.dat").read_text().split()[-2], r["average"]["value"], "%.6e")
same((work / "mob.dat").read_text().split()[-1], r["average"]["half_range"], "%.6e")
for axis in "abc":
    same((work / f"mob_{axis}.dat").read_text().split()[-2], r["axes"][axis]["value"], "%.6e")
for plane in ("xy", "xz", "yz"):
    rows = [line.split() for line in (work / f"mob_plane_{plane}.dat").read_text().splitlines()]
    top = max(rows, key=lambda row: float(row[1]))
    same(top[1], r["planes"][plane]["largest"]["value"], "%.4e")
    # 0 and 360 degrees print the same mobility: the summary names either.
    assert ["%.0f" % r["planes"][plane]["largest"]["angle_deg"], top[1]] in [row[:2] for row in rows]
    same(min(rows, key=lambda row: float(row[1]))[1], r["planes"][plane]["smallest"]["value"], "%.4e")
rows = [line.split() for line in (work / "mob_direction_all.dat").read_text().splitlines()[1:] if line.strip()]
same(max(rows, key=lambda row: float(row[2]))[2], r["sphere"]["largest"]["value"], "%.4e")
same(min(rows, key=lambda row: float(row[2]))[2], r["sphere"]["smallest"]["value"], "%.4e")
tensor, t = work / "mob_tensor.dat", r["tensor"]
for k in range(3):
    stats = words(tensor, f"principal_{k + 1}")[1]
    for printed, key in zip(stats[1:4], ("value", "standard_error")):
        same(printed, t["principal"][k][key], "%.6e")
    same(stats[3], t["principal"][k]["interval_95"][0], "%.6e")
for row, subset in zip(words(tensor, "convergence"), t["convergence"]["subsets"]):
    assert int(row[1]) == subset["trajectories"]
    same(row[2], subset["value"], "%.6e")
assert s["inputs"]["nsimu"] == 3 and s["inputs"]["structure_files"] == ["m1.mol", "m2.mol"]
assert s["warnings"] == []

# Without the scans and the tensor, their results are null; the warning is kept.
work, s = run(["-json"], edit=lambda text: text.replace("tsimu = 5", "tsimu = 5.0d0"))
assert s["results"]["sphere"] is None and s["results"]["tensor"] is None
assert all(s["results"]["planes"][p] is None for p in ("xy", "xz", "yz"))
assert s["warnings"] == ['kelta.inp line 7: tsimu = 5.0d0 is read as 5 (the text "d0" after the number is ignored).']
print("mob_summary.json: schema and numbers agree")

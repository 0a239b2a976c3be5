"""What is built outside this build: shown programs, other firmware, and what is installed."""
import filecmp
import os
import re
import shlex

import pytest

from marvane_sim import run
from places import BUILD, SIM, SOURCE

COMPILER = os.environ.get("MARVANE_COMPILER", "c++")
COMPILED_WITH = f"-DCMAKE_CXX_COMPILER={COMPILER}"
IMAGES = {"k40": 15888, "k44": 14002, "k50": 14172}


def succeed(*words, env=None):
    finished = run(words, env=env and os.environ | env, timeout=120)
    assert finished.status == 0, finished
    return finished.output


def test_the_readmes_first_program_does_what_it_shows(folder):
    """Its commands, as they stand there, in a folder that looks as it does after its build."""
    readme = (SOURCE / "README.md").read_text()
    commands = re.search(r"^cat > first\.cpp.*?(?=^```)", readme, re.M | re.S)[0]
    (folder / "build").mkdir()
    (folder / "include").symlink_to(SOURCE / "include")
    (folder / "build" / "quick").symlink_to(BUILD)
    shown = re.search(r"You see\n\n(.*?)\n\nTo press", readme, re.S)[1]
    assert succeed("sh", "-euc", f"cd {folder}\n{commands}") == re.sub("^    ", "", shown + "\n",
                                                                      flags=re.M)


def test_the_headers_program_does_what_it_shows(folder, marvane_sim):
    header = (SOURCE / "include" / "marvaneusb.h").read_text()
    code = re.search(r"@code\n(.*?) \* @endcode", header, re.S)[1]
    code = re.sub(r"^ \* ?", "", code, flags=re.M)
    (folder / "shown.cpp").write_text(
        f'#include <cstdio>\n#include "marvaneusb.h"\nint main() {{\n{code}}}\n')
    succeed(COMPILER, f"-I{SOURCE}/include", folder / "shown.cpp", f"-L{BUILD}/src", "-lmarvaneusb",
            f"-Wl,-rpath,{BUILD}/src", "-o", folder / "shown")
    sim = marvane_sim("k44")
    sim[0].ctl("input", 5, "on")
    finished = sim.run([folder / "shown"])
    assert (finished.status, finished.errors) == (0, "")
    assert sim[0].show()["outputs"]["on"] == [12]
    sim[0].ctl("unplug")
    unplugged = sim.run([folder / "shown"])
    assert unplugged.status == 1 and unplugged.errors


def test_the_page_on_testing_shows_the_example_that_is_built():
    page = (SOURCE / "docs" / "testing.md").read_text()
    assert (SOURCE / "examples" / "testing" / "unit_test.cpp").read_text() in page


def test_a_wrong_image_stops_the_configuration_and_right_ones_are_carried(folder):
    images = folder / "images"
    images.mkdir()
    for model, size in IMAGES.items():
        (images / f"{model}.bin").write_bytes(bytes(n * n % 251 for n in range(size)))

    def configure(*words):
        finished = run(["cmake", "-S", SOURCE, "-B", folder / "build", *words, COMPILED_WITH,
                        *(f"-DMARVANE_{part}=OFF"
                          for part in ("TESTS", "SIMULATOR", "EXAMPLES", "BENCHMARKS"))])
        return finished.status == 0, " ".join((finished.output + finished.errors).split())

    succeeded, said = configure()
    assert succeeded and "Firmware: stand-ins" in said
    for model, content, complaint in [
        ("k44", None, "k44.bin is missing; it must have 14002 bytes"),
        ("k50", b"x" * 14171, "k50.bin has 14171 bytes; it must have 14172"),
        ("k40", b"x" * 15889, "k40.bin has 15889 bytes; it must have 15888"),
    ]:
        image = images / f"{model}.bin"
        right = image.read_bytes()
        image.write_bytes(content) if content else image.unlink()
        succeeded, said = configure(f"-DMARVANE_FIRMWARE_DIR={images}")
        assert not succeeded and complaint in said
        image.write_bytes(right)
    succeeded, said = configure(f"-DMARVANE_FIRMWARE_DIR={images}")
    assert succeeded and "stand-in" not in said
    for model in IMAGES:
        carried = (folder / "build" / "firmware" / f"{model}_firmware.inc").read_text()
        assert bytes(int(byte, 0) for byte in re.findall("0x..", carried)) == (
            images / f"{model}.bin").read_bytes()


def test_the_installed_package_is_what_we_ship_and_serves_both_ways_of_building(folder):
    prefix = folder / "prefix"
    succeed("cmake", "--install", BUILD, "--prefix", prefix)
    doc = prefix / "share" / "doc" / "marvaneusb"
    for part in "LICENSE", "README.md", "CHANGELOG.md", "docs/simulator.md", "docs/testing.md":
        assert (doc / part).is_file()
    (pc,) = prefix.glob("**/marvaneusb.pc")
    library = pc.parents[1]
    if os.environ.get("MARVANE_STRIPPED") == "ON":
        for binary in [*library.glob("libmarvaneusb*.so"), *prefix.glob("bin/*")]:
            assert succeed("nm", binary) == "", f"{binary} is not stripped"

    # find_package, as the installed examples do, and as somebody else's tests do.
    examples = filecmp.dircmp(SOURCE / "examples", doc / "examples")
    assert not examples.left_only and not examples.subdirs["cabinet"].left_only
    for source, build, target in [(doc / "examples", "build", "running_light"),
                                  (SOURCE / "tests" / "installed_package", "outside", "all")]:
        succeed("cmake", "-S", source, "-B", folder / build, f"-DCMAKE_PREFIX_PATH={prefix}",
                COMPILED_WITH)
        succeed("cmake", "--build", folder / build, "--target", target)
    assert "Usage: running_light" in succeed(folder / "build" / "running_light", "--help")
    # Its boards are its own: nothing is to come before them.
    succeed("env", "-u", "LD_PRELOAD", "ctest", "--test-dir", folder / "outside",
            "--no-tests=error")

    # pkg-config, also once the folder has moved.
    moved = prefix.rename(folder / "moved")
    (folder / "user.cpp").write_text("""
        #include <marvaneusb.h>
        int main() {
            MarvaneUSB board;
            unsigned char text[2];
            return board.GetDllVersion(text) && E24LC512.highestAddress == 65535 ? 0 : 1;
        }""")
    library = moved / library.relative_to(prefix)
    flags = succeed("pkg-config", "--cflags", "--libs", "marvaneusb",
                    env={"PKG_CONFIG_PATH": str(library / "pkgconfig")})
    succeed(COMPILER, "-std=c++11", folder / "user.cpp", *shlex.split(flags),
            f"-Wl,-rpath,{library}", "-o", folder / "user")
    succeed(folder / "user")

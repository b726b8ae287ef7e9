"""The recipes for Buildroot, Yocto and OpenWrt. None of the three is run here. GNU make reads the makefiles,
kconfiglib the menu, and a small reader the recipe for BitBake. Their commands install what CMake installs."""

import json
import os
import re
import subprocess
import time

import kconfiglib
import pytest

from conftest import SOURCE, locked, run
from image_builders import BUILDROOT, OPENWRT, YOCTO, BitBakeFile, Yocto, buildroot, openwrt

VERSION = re.search(r"project\(\w+ VERSION (\S+)", (SOURCE / "CMakeLists.txt").read_text())[1]
PATIENCE = 30  # seconds

# What CMakeLists.txt looks for, and its names in Buildroot, Yocto and OpenWrt. For Yocto, programs of the
# machine that builds are classes.
NAMES = {
    "PkgConfig": ("host-pkgconf", "pkgconfig", None),
    "Python3": ("host-python3", "python3native", None),
    "Threads": (None, None, "+libpthread"),
    "ZLIB": ("zlib", "zlib", "+zlib"),
    "fcgi": ("libfcgi", "fcgi", "+libfcgi"),
    "libcrypt": ("libxcrypt", "libxcrypt", None),
    "libsodium": ("libsodium", "libsodium", None),
    "pugixml": ("pugixml", "pugixml", "+pugixml"),
}


def files_below(folder):
    return {f"/{path.relative_to(folder)}" for path in folder.rglob("*") if not path.is_dir()}


@pytest.fixture(scope="module")
def components(prefix, tmp_path_factory):
    """Installs each component into a folder of its own, for the prefix /usr, and "all" as without a component;
    returns these folders."""
    folders = {name: tmp_path_factory.mktemp(name) for name in ("runtime", "dev", "phone", "all")}
    with locked(SOURCE / "build/installed"):
        for name, folder in folders.items():
            run("cmake", "--install", SOURCE / "build/installed", "--prefix", "/usr",
                *(["--component", name] if name != "all" else []),
                env=dict(os.environ, DESTDIR=str(folder)))
    return folders


@pytest.fixture
def cmake(components, tmp_path):
    """A stand-in for cmake(1), whose option --install copies what was installed."""
    program = tmp_path / "programs/cmake"
    program.parent.mkdir()
    program.write_text(f"""#!/bin/sh -e
[ "$1 $2" = "--install built" ]
shift 2
case "$*" in
"--component runtime") folder={components["runtime"]} ;;
"--component dev") folder={components["dev"]} ;;
"--component phone") folder={components["phone"]} ;;
"") folder={components["all"]} ;;
*) exit 64 ;;
esac
mkdir -p "$DESTDIR"
cp -a "$folder/." "$DESTDIR"
""")
    program.chmod(0o755)
    return program


def recipe_of(builder, folder):
    """Returns the options for CMake and the names of what is needed."""
    if builder == "buildroot":
        make = buildroot(folder)
        return make.words("FCGISERVER_CONF_OPTS"), {*make.words("FCGISERVER_DEPENDENCIES")}
    if builder == "yocto with the phone":
        recipe = Yocto()
        classes = {"pkgconfig", "python3native"} & {*recipe.inherited}
        return ([*recipe.words("EXTRA_OECMAKE"), recipe.with_phone],
                {*recipe.words("DEPENDS"), *recipe.needs_for_phone.split(), *classes})
    make = openwrt(folder)
    return make.words("CMAKE_OPTIONS"), {*make.words("DEPENDS")} - {"+libstdcpp"}


def looked_for(trace):
    """Returns what these sources look for, as a trace of CMake shows."""
    calls = [json.loads(line) for line in trace.read_text().splitlines()]
    calls = [call for call in calls if call.get("file", "").startswith(str(SOURCE))]
    return {call["args"][0] for call in calls if call["cmd"] == "find_package"} \
        | {call["args"][-1] for call in calls if call["cmd"] == "pkg_check_modules"}


@pytest.mark.parametrize("builder", ["buildroot", "yocto with the phone", "openwrt"])
def test_options_and_dependencies_are_those_of_cmake(builder, tmp_path):
    """Configured as for another machine, which this one's compiler stands for."""
    options, needed = recipe_of(builder, tmp_path)
    (tmp_path / "toolchain.cmake").write_text("set(CMAKE_SYSTEM_NAME Linux)\n")
    printed = run("cmake", "-S", SOURCE, "-B", tmp_path / "build", "-G", "Ninja",
                  f"-DCMAKE_TOOLCHAIN_FILE={tmp_path}/toolchain.cmake", "-DCMAKE_INSTALL_PREFIX=/usr",
                  "-DCMAKE_EXPORT_COMPILE_COMMANDS=ON", "--trace-expand", "--trace-format=json-v1",
                  f"--trace-redirect={tmp_path}/trace", *options)
    assert "Manually-specified variables were not used" not in printed
    commands = (tmp_path / "build/compile_commands.json").read_text()
    assert "host/main.cpp" in commands and " -Wall -Wextra " in commands
    assert not re.search("-Werror|ccache|servlet_check", commands)
    assert ("examples/phone" in commands) == ("phone" in builder)
    index = ["buildroot", "yocto", "openwrt"].index(builder.split()[0])
    assert needed == {NAMES[name][index] for name in looked_for(tmp_path / "trace")} - {None}


def assert_a_plug_in_and_its_test_are_configured(tree, build):
    """By the CMake package in `tree`, with the prefix /usr; CMake looks whether the files that it names exist."""
    run("cmake", "-S", SOURCE / "examples/hello", "-B", build, "-G", "Ninja", "-DBUILD_TESTING=ON",
        f"-DfcgiServer_DIR={tree}/usr/lib/cmake/fcgiServer")
    map_file, = set(re.findall(r"--version-script=(\S+)", (build / "build.ninja").read_text()))
    assert map_file.startswith(f"{tree}/") and os.path.isfile(map_file)


def test_the_recipes_have_the_version_and_no_licence(tmp_path):
    assert not [path for path in SOURCE.iterdir() if re.match("LICEN[CS]E|COPYING", path.name)]
    assert "no licence" in (SOURCE / "packaging/debian/copyright").read_text()
    make = buildroot(tmp_path)
    assert make.words("FCGISERVER_VERSION") == [VERSION]
    assert make.words("FCGISERVER_LICENSE")[0] == "none," and make.words("FCGISERVER_REDISTRIBUTE") == ["NO"]
    assert (SOURCE / make.words("FCGISERVER_LICENSE_FILES")[0]).is_file()
    assert (Yocto().version, Yocto().words("LICENSE")) == (VERSION, ["CLOSED"])
    make = openwrt(tmp_path)
    assert (make.words("PKG_VERSION"), make.words("PKG_LICENSE")) == ([VERSION], ["none"])
    assert (SOURCE / make.words("PKG_LICENSE_FILES")[0]).is_file()


# ---- Buildroot


MENU = """
config BR2_INSTALL_LIBSTDCPP
	bool "C++"
config BR2_TOOLCHAIN_GCC_AT_LEAST_9
	bool "gcc 9"
config BR2_TOOLCHAIN_HAS_THREADS
	bool "threads"
config BR2_USE_MMU
	bool "MMU"
config BR2_STATIC_LIBS
	bool "static"
config BR2_TOOLCHAIN_USES_GLIBC
	bool "glibc"
config BR2_PACKAGE_LIBFCGI
	bool
config BR2_PACKAGE_PUGIXML
	bool
config BR2_PACKAGE_LIBSODIUM
	bool
config BR2_PACKAGE_LIBXCRYPT
	bool
config BR2_PACKAGE_ZLIB
	bool
source "$BR2_EXTERNAL_FCGISERVER_PATH/Config.in"
"""
TOOLCHAIN = ["INSTALL_LIBSTDCPP", "TOOLCHAIN_GCC_AT_LEAST_9", "TOOLCHAIN_HAS_THREADS", "USE_MMU",
             "TOOLCHAIN_USES_GLIBC"]


@pytest.fixture
def menu(tmp_path, monkeypatch):
    """Returns a function that enters these symbols and returns the packages that are then selected."""
    monkeypatch.setenv("BR2_EXTERNAL_FCGISERVER_PATH", str(BUILDROOT))
    monkeypatch.setenv("KCONFIG_WARN_UNDEF", "y")
    (tmp_path / "Config.in").write_text(MENU)

    def enter(*names):
        configuration = kconfiglib.Kconfig(str(tmp_path / "Config.in"), warn_to_stderr=False)
        assert configuration.warnings == []
        for name in names:
            configuration.syms[f"BR2_{name}"].set_value("y")
        return {name.removeprefix("BR2_PACKAGE_").lower() for name, symbol in configuration.syms.items()
                if name.startswith("BR2_PACKAGE_") and symbol.str_value == "y"}
    return enter


def test_the_menu_of_buildroot_selects_what_the_package_needs(menu, tmp_path):
    chosen = [*TOOLCHAIN, "PACKAGE_FCGISERVER"]
    for phone, names in (False, chosen), (True, [*chosen, "PACKAGE_FCGISERVER_PHONE"]):
        make = buildroot(tmp_path, phone)
        libraries = {name for name in make.words("FCGISERVER_DEPENDENCIES") if not name.startswith("host-")}
        own = {"fcgiserver", *(["fcgiserver_phone"] if phone else [])}
        assert menu(*names) == libraries | own


@pytest.mark.parametrize("without", TOOLCHAIN)
def test_the_menu_of_buildroot_needs_each_part_of_the_toolchain(menu, without):
    names = [name for name in TOOLCHAIN if name != without]
    chosen = menu(*names, "PACKAGE_FCGISERVER", "PACKAGE_FCGISERVER_PHONE")
    assert ("fcgiserver_phone" not in chosen
            and ("fcgiserver" in chosen) == (without == "TOOLCHAIN_USES_GLIBC"))
    assert menu(*TOOLCHAIN, "STATIC_LIBS", "PACKAGE_FCGISERVER") == set()


def test_buildroot_is_told_where_everything_is(tmp_path):
    described = dict(line.split(": ", 1) for line in (BUILDROOT / "external.desc").read_text().splitlines())
    assert described.keys() == {"name", "desc"} and described["name"] == "FCGISERVER"
    make = buildroot(tmp_path)
    site, = make.words("FCGISERVER_SITE")
    assert os.path.samefile(site, SOURCE) and make.words("FCGISERVER_SITE_METHOD") == ["local"]
    assert make.words("EVALUATED") == ["cmake-package"]
    excluded = make.words("FCGISERVER_OVERRIDE_SRCDIR_RSYNC_EXCLUSIONS")
    ignored = (SOURCE / ".gitignore").read_text()
    assert excluded[::2] == ["--exclude"] * 3
    assert all(f"{folder}/\n" in ignored for folder in excluded[1::2])


def test_buildroot_installs_the_components(components, cmake, tmp_path):
    buildroot(tmp_path, cmake=cmake).run("target")
    assert files_below(tmp_path / "target") == files_below(components["runtime"])
    make = buildroot(tmp_path, phone=True, cmake=cmake)
    make.run("target")
    with_phone = files_below(components["runtime"]) | files_below(components["phone"])
    assert files_below(tmp_path / "target") == with_phone
    permissions = make.words("FCGISERVER_PERMISSIONS")
    assert permissions[0::10] == ["/phone/data", "/phone/data/reset"] \
        and all((tmp_path / f"target{path}").exists() for path in permissions[0::10])
    make.run("sysv")
    units = {name for name in with_phone if "/systemd/" in name}
    assert len(units) > 1
    assert files_below(tmp_path / "target") == with_phone - units | {"/etc/init.d/S50fcgi_host"}
    make.run("staging")
    assert files_below(tmp_path / "staging") == files_below(components["all"]) \
        == files_below(components["runtime"]) - units | files_below(components["dev"])
    assert_a_plug_in_and_its_test_are_configured(tmp_path / "staging", tmp_path / "build")


def user_of_the_service(components):
    unit = (components["runtime"] / "usr/lib/systemd/system/fcgi_host.service").read_text()
    return re.search("^User=(.*)$", unit, re.M)[1]


def test_each_recipe_creates_the_user_of_the_daemon(components, tmp_path):
    user = user_of_the_service(components)
    make = buildroot(tmp_path)
    assert make.words("FCGISERVER_USERS")[:4] == [user, "-1", user, "-1"]
    assert Yocto().words("USERADD_PARAM:${PN}")[-1] == user
    assert openwrt(tmp_path).words("USERID") == [f"{user}:www-data"]


def options_are_valid(prefix, words):
    """An unknown option or value ends the daemon before it looks at --version."""
    checked = subprocess.run([prefix / "sbin/fcgi_host", *words, "--version"], capture_output=True, text=True,
                             env=dict(os.environ, LD_LIBRARY_PATH=str(prefix / "lib")))
    return checked.returncode == 0 and checked.stdout.startswith("fcgi_host ")


def test_the_init_script_of_buildroot_starts_and_stops_the_daemon(prefix, components, tmp_path):
    """By Debian's start-stop-daemon(8), with the paths and the user of this test."""
    script = (BUILDROOT / "package/fcgiserver/S50fcgi_host").read_text()
    options = re.search(r"-- \\\n +(.*)$", script, re.M)[1]
    assert options_are_valid(prefix, options.split())
    assert f"--user {user_of_the_service(components)}:www-data" in options
    program = SOURCE / "build/dev/host/fcgi_host"
    here = tmp_path / "S50fcgi_host"
    here.write_text(re.sub(" --user .*", "", script).replace("/usr/sbin/fcgi_host", str(program))
                    .replace("/var/run/", f"{tmp_path}/"))

    def init(argument):
        return subprocess.run(["sh", here, argument], capture_output=True, text=True, timeout=PATIENCE)

    pid_file, socket = tmp_path / "fcgi_host.pid", tmp_path / "fcgi_host.sock"
    assert init("start").stdout == "Starting fcgi_host: OK\n"
    try:
        end = time.monotonic() + PATIENCE
        while not socket.exists():
            assert time.monotonic() < end
            time.sleep(0.05)
        process = f"/proc/{pid_file.read_text().strip()}"
        assert os.path.samefile(f"{process}/exe", program)
        assert init("start").returncode != 0  # already running
    finally:
        stopped = init("stop")
    assert stopped.stdout == "Stopping fcgi_host: OK\n"
    assert not os.path.exists(process) and not pid_file.exists()
    assert init("stop").stdout == "Stopping fcgi_host: FAIL\n"
    assert init("status").returncode == 64


# ---- Yocto


def test_the_layer_has_the_recipe(tmp_path):
    layer = BitBakeFile(YOCTO / "conf/layer.conf")
    pattern = layer.set["BBFILES"].strip().replace("${LAYERDIR}/", "")
    assert [path.name for path in YOCTO.glob(pattern)] == [f"fcgiserver_{VERSION}.bb"]
    name = layer.set["BBFILE_COLLECTIONS"].strip()
    assert {f"BBFILE_PATTERN_{name}", f"BBFILE_PRIORITY_{name}", f"LAYERDEPENDS_{name}"} <= layer.set.keys()


def test_the_recipe_of_yocto_finds_the_sources():
    recipe = Yocto()
    assert recipe.inherited[0] == "externalsrc" and {"cmake", "systemd", "useradd"} < {*recipe.inherited}
    source, = recipe.words("EXTERNALSRC")
    assert os.path.samefile(source, SOURCE)


def packaged(recipe, folder):
    """Returns the files of each package: a file belongs to the first one, in the order of PACKAGES, whose
    FILES have it."""
    remaining = files_below(folder)
    packages = {}
    for package in ["-phone", "-staticdev", "-dev", "-doc", ""]:
        parts = recipe.words(f"FILES:${{PN}}{package}")
        packages[package] = {name for name in remaining
                             if any(name == part or name.startswith(f"{part}/") for part in parts)}
        remaining -= packages[package]
    return packages, remaining


@pytest.mark.parametrize("units", ["/usr/lib/systemd/system", "/lib/systemd/system"])
@pytest.mark.parametrize("phone", [True, False])
def test_the_recipe_of_yocto_puts_each_file_into_a_package(components, cmake, tmp_path, units, phone):
    recipe = Yocto(phone, D=str(tmp_path / "image"), systemd_system_unitdir=units)
    chown = cmake.parent / "chown"
    chown.write_text(f'#!/bin/sh\necho "$*" >"{tmp_path}/owned"\n')
    chown.chmod(0o755)
    run("sh", "-ec", recipe.expand(recipe.functions["do_install"]),
        env=dict(os.environ, PATH=f"{cmake.parent}:{os.environ['PATH']}"))
    packages, remaining = packaged(recipe, tmp_path / "image")
    assert remaining == set()
    runtime = {re.sub("^/usr/lib/systemd/system", units, name) for name in files_below(components["runtime"])}
    assert packages[""] | packages["-doc"] == runtime
    assert packages["-dev"] | packages["-staticdev"] == {
        name for name in files_below(components["dev"])
        if not re.match("/usr/bin/|/usr/share/man/|/usr/share/fcgiServer/(config|project|serve|with)/", name)}
    assert packages["-staticdev"] == {name for name in packages["-staticdev"] if name.endswith(".a")} != set()
    assert packages["-phone"] == (files_below(components["phone"]) if phone else set())
    unit, = recipe.words("SYSTEMD_SERVICE:${PN}")
    assert f"{units}/{unit}" in packages[""]
    assert_a_plug_in_and_its_test_are_configured(tmp_path / "image", tmp_path / "build")
    if phone:
        user = user_of_the_service(components)
        assert (tmp_path / "owned").read_text() == f"-R {user}:{user} {tmp_path}/image/phone/data\n"


# ---- OpenWrt


def test_openwrt_copies_the_sources_without_what_was_built(tmp_path):
    openwrt(tmp_path).run("prepare")
    copied = {path.name for path in (tmp_path / "prepared").iterdir()}
    assert {"CMakeLists.txt", "fcgiServer", "packaging"} <= copied and not {"build", ".git"} & copied
    assert not (tmp_path / "prepared/tests/browser/node_modules").exists()


def test_openwrt_packages_what_runs_and_stages_what_is_compiled_against(components, tmp_path):
    make = openwrt(tmp_path)
    (tmp_path / "installed").symlink_to(components["all"])
    for target in ("package", "dev"):
        make.run(target)
    runtime = files_below(components["runtime"])
    assert files_below(tmp_path / "package") == {"/etc/init.d/fcgi_host"} | {
        name for name in runtime if not re.match("/usr/share/man/|/usr/lib/systemd/", name)}
    assert os.access(tmp_path / "package/etc/init.d/fcgi_host", os.X_OK)
    libraries = {name for name in runtime if re.match(r"/usr/lib/[^/]*\.so", name)}
    assert files_below(tmp_path / "dev") == libraries | {
        name for name in files_below(components["dev"]) if not re.match("/usr/bin/|/usr/share/man/", name)}
    assert_a_plug_in_and_its_test_are_configured(tmp_path / "dev", tmp_path / "build")


def test_the_init_script_of_openwrt_starts_the_daemon_with_valid_options(prefix, components):
    script = OPENWRT / "files/fcgi_host.init"
    assert script.read_text().startswith("#!/bin/sh /etc/rc.common\n")
    printed = run("sh", "-euc", f"""
procd_open_instance() {{ echo open; }}
procd_close_instance() {{ echo close; }}
procd_set_param() {{ echo "$*"; }}
. {script}
[ "$USE_PROCD" = 1 ]
[ "$START" -lt "$STOP" ]
start_service""").splitlines()
    assert (printed[0], printed[-1]) == ("open", "close")
    parameters = dict(line.split(" ", 1) for line in printed[1:-1])
    program, *options = parameters["command"].split()
    assert program in files_below(components["runtime"])
    assert options_are_valid(prefix, options)
    assert options[-1] == f"{user_of_the_service(components)}:www-data"
    drain = int(re.search(r"int drainSeconds = (\d+);", (SOURCE / "host/options.h").read_text())[1])
    assert int(parameters["term_timeout"]) > drain
    # SIGHUP, which other daemons reload their configuration on, would stop this one.
    assert "reload_signal" not in parameters


@pytest.mark.parametrize("path", [
    "packaging/systemd/fcgi_host.service.in", "packaging/buildroot/package/fcgiserver/S50fcgi_host",
    "packaging/openwrt/fcgiserver/files/fcgi_host.init"])
def test_each_service_sends_what_the_access_log_shows(path):
    assert re.search(r"/fcgi_host (?:-- \\\n +)?--access-log-header\b", (SOURCE / path).read_text())

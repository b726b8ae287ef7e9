"""Every command that a document shows is run by a test, or listed here with the reason why not."""

import re
import shlex
import subprocess

import pytest

import commands_run_test as here
import documents_test
import guide_test
import new_test
import porting_test
import shown_commands
from conftest import SOURCE

SHOWN = shown_commands.shown()

# The commands that a test runs, as that test has them.
RUN_BY = {
    here.test_the_names_of_the_steps_are_listed: [here.LIST_STEPS],
    here.test_the_preset_for_daily_work_is_built: [here.BUILD],
    here.test_the_compile_commands_are_linked: [here.COMPILE_COMMANDS, here.LINK],
    here.test_a_single_test_runs: [command for commands in here.SINGLE_TESTS for command in commands],
    here.test_the_tests_that_are_named_run: here.NAMED_TESTS,
    here.test_a_release_is_installed_into_an_image: [*here.RELEASE, here.ENABLE_SOCKET],
    here.test_signals_change_the_log_and_show_the_status: [here.LISTEN, here.MORE_LINES, here.STATUS],
    here.test_the_lines_of_one_request_are_found: [here.LINES_OF_A_REQUEST],
    here.test_the_daemon_runs_in_the_debugger: [here.DEBUG_DAEMON, here.REQUEST],
    here.test_curl_shows_what_the_web_server_answers: [here.SERVE, here.SHOW_ANSWER],
    here.test_the_debugger_is_attached_to_the_served_daemon: [here.ATTACH],
    documents_test.test_the_guide_leads_from_an_empty_folder_to_a_page:
        documents_test.commands_of_the_first_page(),
    documents_test.test_the_sources_lead_to_a_project_of_ones_own:
        documents_test.commands_of_a_project_from_the_sources(),
    guide_test.test_the_commands_of_a_chapter_work:
        [command for chapter in guide_test.CHAPTERS for command in guide_test.commands(chapter)],
    guide_test.test_the_first_steps_of_troubleshooting_work: guide_test.first_steps(),
    guide_test.test_the_served_page_is_measured: [guide_test.SERVE, guide_test.MEASURE],
    guide_test.test_the_debugger_stops_in_a_served_page: guide_test.ATTACH,
    new_test.built: new_test.commands(new_test.PROJECT)[:1],
    new_test.test_a_new_project_passes_its_test: new_test.commands(new_test.PROJECT)[1:2],
    new_test.test_a_new_project_is_served: new_test.commands(new_test.PROJECT)[2:],
    new_test.test_a_project_of_another_kind_works_like_the_first:
        new_test.command_blocks(new_test.PROJECT)[1].splitlines(),
    new_test.test_json_is_sent_with_curl: [new_test.POST_JSON],
    new_test.test_the_examples_of_the_man_page_work: new_test.examples_of_servlet_check(),
    porting_test.sources: shown_commands.statements(porting_test.commands()[0]),
    porting_test.test_the_guides_request_is_answered_as_it_says:
        shown_commands.statements(porting_test.commands()[1]),
}

# Commands that are run in another form: the file that runs it, and the text with which it does.
RUN_IN = {
    "scripts/setup tests": ("scripts/test", "scripts/setup tests"),
    "scripts/lint": ("tests/run.py", '["scripts/lint", "--all"]'),
    'ctest --preset dev -j "$(nproc)"': ("tests/run.py", '["ctest", "--preset", preset, "-j", str(CORES)'),
    "scripts/abi check": ("tests/abi/abi_test.py", 'abi(SOURCE, "check", architecture)'),
    "scripts/abi record": ("tests/abi/abi_test.py", 'abi(changed.folder, "record", "amd64")'),
    "scripts/packages": ("tests/package/debs.py", 'run(SOURCE / "scripts/packages", preset)'),
    "journalctl --since today | grep -E ' request=1041( |:|$)'": (
        "tests/device/test_log.py", "journalctl --since today | grep -E ' request={number}( |:|$)'"),
    "apt-get install lighttpd lighttpd-mod-deflate": (
        "tests/package/debian_test.py",
        'debian.run("apt-get", "-y", "-q", "--no-install-recommends", "install", *FRONT_SERVER)'),
    "lighty-enable-mod fcgiserver-phone": (
        "tests/package/debian_test.py", 'debian.run("lighty-enable-mod", "fcgiserver-phone")'),
    'exec fcgi_host --listen "$STATE_DIR/fcgi.sock" --threads 4': (
        "tests/wire/test_front_servers.py", '["start-listening", "start-from-socket"]'),
    'exec systemd-socket-activate --listen "$STATE_DIR/fcgi.sock" fcgi_host --threads 4': (
        "tests/wire/test_front_servers.py", '["start-listening", "start-from-socket"]'),
    "servlet_new news": ("tests/package/new_test.py", 'run("servlet_new", "greeting", cwd=folder, env=env)'),
    "cd news": ("tests/package/new_test.py", "commands(greeting)[0], cwd=greeting"),
    "servlet_new news && cd news": ("tests/package/new_test.py", '"servlet_new news && cd news"'),
    'servlet_check --root image --partial --provides "$FCGISERVER/build/serve/prefix/lib/libdevice.so"': (
        "tests/servlet_check/test_project.py", r"```text\n\$ servlet_check (.*)\n"),
    "servlet_check --root image --explain '/servlet?p=hello&reboot=true'": (
        "tests/servlet_check/test_project.py", r"```text\n\$ servlet_check (.*)\n"),
}

# The reason why a test cannot run it, and the files without which it is wrong.
NOT_RUN = {
    "scripts/test": ("runs this test", ["tests/run.py"]),
    "scripts/test --all": ("runs this test", ["tests/run.py"]),
    "scripts/fuzz 600": ("runs each fuzzer for ten minutes", []),
    "scripts/fuzz 600 multipart upload": (
        "runs two fuzzers for ten minutes", ["tests/fuzz/multipart.cpp", "tests/fuzz/upload.cpp"]),
    "scripts/fuzz --executions 10000000 36000": ("runs each fuzzer for up to ten hours", []),
    "scripts/fuzz --planted": ("compiles the fuzzers for each bug", ["tests/fuzz/planted_bugs.toml"]),
    'scripts/fuzz --planted "an older page is redirected elsewhere" "the gain may be one too high"': (
        "compiles the fuzzers twice", ["tests/fuzz/planted_bugs.toml"]),
    "scripts/mutation 1000 | tail -1": (
        "compiles the tests hundreds of times", ["tests/mutation/mutation.py"]),
    "scripts/mutation planted | tail -1": (
        "compiles a test for each bug", ["tests/mutation/planted_bugs.toml"]),
    "scripts/device": ("makes and boots a virtual phone", ["tests/device/main.py"]),
    "scripts/device --console": ("needs a virtual phone that runs", ["tests/device/main.py"]),
    "scripts/device --port 8081 --memory 128": (
        "makes and boots a virtual phone", ["tests/device/main.py"]),
    "scripts/device --test": ("makes and boots a virtual phone", ["tests/device/test_device.py"]),
    "scripts/device --test -k purge": (
        "makes and boots a virtual phone", ["tests/device/test_upgrade_and_purge.py"]),
    'make BR2_EXTERNAL="$FCGISERVER/packaging/buildroot" menuconfig': (
        "needs Buildroot", ["packaging/buildroot/external.desc"]),
    "make fcgiserver": ("needs Buildroot", ["packaging/buildroot/package/fcgiserver/fcgiserver.mk"]),
    'bitbake-layers add-layer "$FCGISERVER/packaging/yocto"': (
        "needs BitBake", ["packaging/yocto/conf/layer.conf"]),
    "bitbake fcgiserver": ("needs BitBake", ["packaging/yocto/recipes-httpd/fcgiserver"]),
    "./scripts/feeds update -a && ./scripts/feeds install fcgiserver": (
        "needs OpenWrt's build", ["packaging/openwrt/fcgiserver/Makefile"]),
    "make package/fcgiserver/compile": (
        "needs OpenWrt's build", ["packaging/openwrt/fcgiserver/Makefile"]),
    "systemctl reload-or-restart lighttpd": ("needs systemd as the first process", []),
}

HOW = """is shown in {}, and no test runs it.
Run it in tests/package/commands_run_test.py and enter it in RUN_BY in tests/package/commands_test.py;
or, if no test can run it, enter it in NOT_RUN there, with the reason."""


def run_by_tests():
    return {command for commands in RUN_BY.values() for command in commands}


@pytest.mark.parametrize("command", SHOWN)
def test_a_shown_command_is_run_by_a_test(command):
    known = run_by_tests() | RUN_IN.keys() | NOT_RUN.keys()
    assert command in known, HOW.format(", ".join(SHOWN[command]))


def test_each_command_that_tests_run_is_shown():
    assert sorted((run_by_tests() | RUN_IN.keys() | NOT_RUN.keys()) - SHOWN.keys()) == []


def test_no_command_is_listed_twice():
    assert not NOT_RUN.keys() & (run_by_tests() | RUN_IN.keys())
    assert not RUN_IN.keys() & run_by_tests()


@pytest.mark.parametrize("command", RUN_IN)
def test_the_file_that_runs_a_command_does_so(command):
    path, text = RUN_IN[command]
    assert text in (SOURCE / path).read_text()


@pytest.mark.parametrize("command", NOT_RUN)
def test_a_command_that_no_test_runs_names_files_that_exist(command):
    _, files = NOT_RUN[command]
    assert [path for path in files if not (SOURCE / path).exists()] == []


def test_each_planted_bug_that_is_named_exists():
    planted = (SOURCE / "tests/fuzz/planted_bugs.toml").read_text()
    named = [name for command in SHOWN if command.startswith("scripts/fuzz --planted")
             for name in shlex.split(command)[2:]]
    assert named and [name for name in named if f'"{name}"' not in planted] == []


@pytest.mark.parametrize("command", SHOWN)
def test_a_shown_command_is_valid_for_the_shell(command):
    checked = subprocess.run(["bash", "-n", "-c", command], capture_output=True, text=True)
    assert (checked.returncode, checked.stderr) == (0, "")


# Commands within a sentence.
MENTIONED = {(found, str(path.relative_to(SOURCE)))
             for path in shown_commands.DOCUMENTS if path.name != "CHANGELOG.md"
             for found in re.findall(r"`((?:scripts/|servlet_|fcgi_host )[^`]* [^`]*)`", path.read_text())}


def description(program):
    """Returns the text in which a program of this project describes its options."""
    path = SOURCE / {"servlet_check": "tools/servlet_check/options.cpp", "fcgi_host": "host/options.cpp",
                     "servlet_new": "tools/servlet_new/servlet_new",
                     "servlet_serve": "tools/servlet_serve/servlet_serve"}.get(program, program)
    text = path.read_text()
    return re.search(r"(?:^#.*\n)+", text, re.MULTILINE)[0] if program.startswith("scripts/") else text


@pytest.mark.parametrize("command", sorted({*SHOWN, *(command for command, _ in MENTIONED)}))
def test_a_command_of_this_project_has_the_options_that_are_shown(command):
    for part in re.split(r"&&|\|", re.sub(r"\$\([^)]*\)", "", command)):
        found = re.match(r'\s*(?:exec )?(?:"\$FCGISERVER/|@sources@/|fcgiServer/)?(?:tools/servlet_new/)?'
                         r'(scripts/\w[\w-]*|servlet_\w+|fcgi_host)"?( .*|$)', part)
        if found:
            text = description(found[1])
            assert [option for option in re.findall(r"(?<= )--[\w-]+", found[2])
                    if not re.search(rf"{option}\b", text)] == []

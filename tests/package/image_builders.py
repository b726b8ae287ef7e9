"""Stand-ins for Buildroot, Yocto and OpenWrt, which read the recipes below packaging/ as these do, as far as
the recipes need it."""

import os
import re
import types

from conftest import SOURCE, run

BUILDROOT = SOURCE / "packaging/buildroot"
YOCTO = SOURCE / "packaging/yocto"
OPENWRT = SOURCE / "packaging/openwrt/fcgiserver"


class Make:
    """Runs GNU make on a text, in the folder `cwd`. No variable must be used that is not set, but for those in
    `unset`."""

    def __init__(self, text, folder, cwd, unset):
        self.file = folder / "Makefile"
        self.file.write_text(text + f"\n.PHONY: {' '.join(re.findall(r'^([a-z]+):$', text, re.M))}\nshow-%:\n\t@:$(info $($*))\n")
        self.cwd = cwd
        self.unset = unset

    def run(self, target):
        printed = run("make", "--silent", "--warn-undefined-variables", "-f", self.file, target, cwd=self.cwd)
        assert {*re.findall("undefined variable '(.*)'", printed)} <= self.unset, printed
        return "\n".join(line for line in printed.splitlines() if "undefined variable" not in line)

    def words(self, name):
        return self.run(f"show-{name}").split()


def buildroot(folder, phone=False, cmake="cmake"):
    """Returns a stand-in with the targets "target", "sysv" and "staging", which install below `folder`."""
    return Make(f"""
BR2_EXTERNAL_FCGISERVER_PATH := {BUILDROOT}
BR2_PACKAGE_FCGISERVER_PHONE := {"y" if phone else ""}
BR2_CMAKE := {cmake}
INSTALL := install
TARGET_DIR := {folder}/target
STAGING_DIR := {folder}/staging
TARGET_MAKE_ENV := LC_ALL=C
FCGISERVER_PKGDIR := {BUILDROOT}/package/fcgiserver
FCGISERVER_BUILDDIR := built
cmake-package = $(eval EVALUATED := cmake-package)
target:
	$(FCGISERVER_INSTALL_TARGET_CMDS)
sysv:
	$(FCGISERVER_INSTALL_INIT_SYSV)
staging:
	$(FCGISERVER_INSTALL_STAGING_CMDS)
include $(BR2_EXTERNAL_FCGISERVER_PATH)/external.mk
""", folder, cwd=folder, unset={"BR2_ENABLE_RUNTIME_DEBUG", *([] if phone else ["FCGISERVER_INSTALL_PHONE"])})


def openwrt(folder):
    """Returns a stand-in with the targets "prepare", "package" and "dev", which write below `folder`."""
    (folder / "include").mkdir()
    (folder / "rules.mk").write_text(
        "INCLUDE_DIR := $(TOPDIR)/include\nCP := cp -fpR\nINSTALL_DIR := install -d -m0755\n"
        "INSTALL_BIN := install -m0755\n")
    (folder / "include/package.mk").write_text(
        "PKG_BUILD_DIR := $(TOPDIR)/prepared\nPKG_INSTALL_DIR := $(TOPDIR)/installed\n")
    (folder / "include/cmake.mk").write_text("CMAKE_OPTIONS :=\n")
    return Make(f"""
TOPDIR := {folder}
BuildPackage = $(Package/$(1))
prepare:
	$(Build/Prepare)
package:
	$(call Package/fcgiserver/install,{folder}/package)
dev:
	$(call Build/InstallDev,{folder}/dev)
include {OPENWRT}/Makefile
""", folder, cwd=OPENWRT, unset={"CONFIG_DEBUG"})


FOLDERS = {"prefix": "/usr", "bindir": "/usr/bin", "sbindir": "/usr/sbin", "libdir": "/usr/lib",
           "includedir": "/usr/include", "datadir": "/usr/share", "mandir": "/usr/share/man",
           "systemd_system_unitdir": "/usr/lib/systemd/system", "B": "built"}
# Whatever else a recipe sets would have no effect.
RECIPE = {"DEPENDS", "DESCRIPTION", "EXTERNALSRC", "EXTERNALSRC_BUILD", "EXTRA_OECMAKE", "LICENSE", "PACKAGES",
          "PACKAGECONFIG", "PACKAGECONFIG[phone]", "REQUIRED_DISTRO_FEATURES", "SECTION", "SUMMARY",
          "SYSTEMD_SERVICE:${PN}", "USERADD_PACKAGES", "USERADD_PARAM:${PN}",
          *(f"{name}:${{PN}}{package}" for name in ("FILES", "RDEPENDS")
            for package in ("", "-dev", "-doc", "-phone", "-staticdev"))}
ASSIGNMENT = re.compile(r'([\w:${}-]+(?:\[\w+\])?) (\?\?=|=\+|\+=|\.=|=) "(.*)"')


class BitBakeFile:
    """Reads assignments, "inherit" and functions; anything else is an error."""

    def __init__(self, path):
        self.set = {}
        self.inherited = []
        self.functions = {}
        lines = iter(path.read_text().replace("\\\n", "").splitlines())
        for line in lines:
            if assignment := ASSIGNMENT.fullmatch(line):
                self.assign(*assignment.groups())
            elif function := re.fullmatch(r"(\w+)\(\) \{", line):
                self.functions[function[1]] = "\n".join(iter(lambda: next(lines), "}"))
            elif line.startswith("inherit "):
                self.inherited += line.split()[1:]
            else:
                assert not line or line.startswith("# "), f"not understood: {line}"

    def assign(self, name, operator, value):
        before = self.set.get(name, "")
        self.set[name] = {"+=": f"{before} {value}", "=+": f"{value} {before}",
                          ".=": before + value}.get(operator, value)


class Yocto(BitBakeFile):
    def __init__(self, phone=False, **variables):
        path, = YOCTO.glob("recipes-*/*/*.bb")
        super().__init__(path)
        assert self.set.keys() <= RECIPE
        self.version = path.stem.removeprefix("fcgiserver_")
        self.known = {**FOLDERS, "PN": "fcgiserver", "THISDIR": str(path.parent), **variables}
        self.with_phone, self.without_phone, self.needs_for_phone = \
            self.set["PACKAGECONFIG[phone]"].split(",")
        if phone:
            self.set["PACKAGECONFIG"] = "phone"

    def expand(self, text):
        """Expands variables, then Python expressions that use os or bb.utils.filter()."""
        def filtered(name, wanted, _):
            return wanted if wanted in self.set[name].split() else ""
        bb = types.SimpleNamespace(utils=types.SimpleNamespace(filter=filtered))
        text = re.sub(r"\$\{(\w+)\}", lambda found: self.known[found[1]], text)
        return re.sub(r"\$\{@(.*?)\}", lambda found: eval(found[1], {"os": os, "bb": bb, "d": None}), text)

    def words(self, name):
        return self.expand(self.set[name]).split()

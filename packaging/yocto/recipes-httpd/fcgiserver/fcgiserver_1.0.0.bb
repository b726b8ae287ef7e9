SUMMARY = "Servlet container for the web interface of a device"
DESCRIPTION = "The daemon fcgi_host, which a web server reaches over FastCGI, and its libraries"
SECTION = "net"

# The sources have no licence: ask their owner for permission.
LICENSE = "CLOSED"

# The sources around this layer, since they have no public address.
inherit externalsrc
EXTERNALSRC = "${@os.path.abspath('${THISDIR}/../../../..')}"
EXTERNALSRC_BUILD = "${WORKDIR}/build"

inherit cmake systemd pkgconfig python3native useradd features_check
REQUIRED_DISTRO_FEATURES = "systemd"

DEPENDS = "fcgi pugixml"

PACKAGECONFIG ??= ""
PACKAGECONFIG[phone] = "-DBUILD_PHONE=ON,-DBUILD_PHONE=OFF,libsodium libxcrypt zlib"

# MinSizeRel is what docs/footprint.md measures. CCACHE: BitBake itself runs ccache, if at all.
EXTRA_OECMAKE = "\
    -DBUILD_TESTING=OFF \
    -DCCACHE=OFF \
    -DCMAKE_BUILD_TYPE=MinSizeRel \
    -DWARNINGS_AS_ERRORS=OFF \
"

do_install() {
    for component in runtime dev ${@bb.utils.filter('PACKAGECONFIG', 'phone', d)}; do
        DESTDIR=${D} cmake --install ${B} --component $component
    done

    # Commands for the machine of who writes plug-ins.
    rm -r ${D}${bindir} ${D}${mandir}/man1
    rm -r ${D}${datadir}/fcgiServer/config ${D}${datadir}/fcgiServer/project
    rm -r ${D}${datadir}/fcgiServer/serve ${D}${datadir}/fcgiServer/with

    if [ ${systemd_system_unitdir} != ${prefix}/lib/systemd/system ]; then
        install -d ${D}${systemd_system_unitdir}
        mv ${D}${prefix}/lib/systemd/system/fcgi_host.* ${D}${systemd_system_unitdir}
        rmdir -p --ignore-fail-on-non-empty ${D}${prefix}/lib/systemd/system
    fi
    if [ -d ${D}/phone ]; then
        chown -R _fcgihost:_fcgihost ${D}/phone/data
        chmod 700 ${D}/phone/data
    fi
}

# The units' socket belongs to the group www-data, which base-passwd has.
USERADD_PACKAGES = "${PN}"
USERADD_PARAM:${PN} = "--system --user-group --no-create-home --home-dir /nonexistent --shell /sbin/nologin _fcgihost"

# The socket starts the service.
SYSTEMD_SERVICE:${PN} = "fcgi_host.socket"

PACKAGES =+ "${PN}-phone"
FILES:${PN} = "${sbindir}/fcgi_host ${libdir}/libdevice.so ${libdir}/libfcgiServer.so ${systemd_system_unitdir}"
FILES:${PN}-dev = "${includedir} ${libdir}/cmake ${libdir}/pkgconfig ${datadir}/fcgiServer"
FILES:${PN}-doc = "${mandir}"
FILES:${PN}-phone = "/phone"
FILES:${PN}-staticdev = "${libdir}/libfcgiServer.a"

# The CMake package is of no use without the static library, which it names.
RDEPENDS:${PN}-dev += "${PN}-staticdev"
RDEPENDS:${PN}-phone = "${PN}"

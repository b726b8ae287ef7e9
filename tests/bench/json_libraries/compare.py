#!/usr/bin/python3
"""Prints what a plug-in's JSON endpoint costs with each of several libraries: bytes of stripped code
and data on 32-bit ARM, the processor seconds that compiling it takes here, and what it allocates here.
Installs nothing; needs "scripts/setup bench" and "scripts/setup arm"."""
import os
import pathlib
import subprocess
import tempfile

HERE = pathlib.Path(__file__).resolve().parent
ROOT = HERE.parents[2]
FLAGS = ['-std=c++17', '-Os', '-DNDEBUG', '-fPIC', '-fvisibility=hidden', '-fno-gnu-unique',
         f'-I{ROOT}', f'-I{ROOT}/kit/include', f'-I{ROOT}/fcgiServer/include',
         f'-I{ROOT}/platform/include']
# Name, source, and the shared library that the device needs beside the plug-in: Debian's package and
# the linker's name.
LIBRARIES = (
    ('the kit with the parser of nlohmann-json3-dev', 'kit_nlohmann', None),
    ('the kit with the parser of rapidjson-dev', 'kit_rapidjson', None),
    ('nlohmann-json3-dev', 'nlohmann', None),
    ('rapidjson-dev', 'rapidjson', None),
    ('libcjson-dev', 'cjson', ('libcjson1', 'cjson')),
    ('libjansson-dev', 'jansson', ('libjansson4', 'jansson')),
)


def run(*command, **options):
    return subprocess.run(command, check=True, capture_output=True, text=True, **options).stdout


def loaded_bytes(file):
    """Returns the bytes of code and data, which do not depend on the debug information."""
    text, data, bss = run('arm-linux-gnueabihf-size', file).splitlines()[1].split()[:3]
    return int(text) + int(data) + int(bss)


def headers(folder):
    """Returns a folder with the libraries' headers only: the cross compiler has its own of the C
    library."""
    include = folder / 'include'
    include.mkdir()
    for name in ('nlohmann', 'rapidjson', 'cjson', 'jansson.h', 'x86_64-linux-gnu/jansson_config.h',
                 'jansson_config.h', 'fcgiapp.h', 'fcgi_config.h', 'fcgimisc.h'):
        source = pathlib.Path('/usr/include') / name
        if source.exists():
            (include / source.name).symlink_to(source)
    return include


def shared_library(folder, package):
    """Returns Debian's shared library for 32-bit ARM."""
    lists = folder / 'apt'
    for part in ('lists/partial', 'cache/archives/partial'):
        (lists / part).mkdir(parents=True, exist_ok=True)
    apt = ['apt-get', '-q', '-o', 'APT::Architecture=armhf', '-o', 'APT::Architectures=armhf',
           '-o', f'Dir::State::Lists={lists}/lists', '-o', 'Dir::State::status=/dev/null',
           '-o', f'Dir::Cache={lists}/cache', '-o', 'Acquire::Languages=none',
           '-o', 'APT::Sandbox::User=root']
    if not list((lists / 'lists').glob('*Packages*')):
        # A source may lack this architecture, as long as the package is in another one.
        subprocess.run([*apt, 'update'], check=False, capture_output=True)
    run(*apt, 'download', package, cwd=folder)
    run('dpkg-deb', '-x', next(folder.glob(f'{package}_*.deb')), folder / package)
    return next(file for file in (folder / package).rglob('*.so.*') if not file.is_symlink())


def size_on_arm(folder, include, source):
    library = folder / f'{source}-arm.so'
    run('arm-linux-gnueabihf-g++', *FLAGS, f'-I{include}', '-shared', HERE / f'{source}.cpp', '-o',
        library)
    return loaded_bytes(library)


def seconds_to_compile(include, source):
    """Returns the processor's, which depend less on what else runs here."""
    def once():
        begin = os.times().children_user
        run('g++', *FLAGS, f'-I{include}', '-c', HERE / f'{source}.cpp', '-o', os.devnull)
        return os.times().children_user - begin
    return min(once() for _ in range(3))


def allocations(folder, include, source, link, counter):
    """Returns the count and bytes of reading a task, and those of writing 20."""
    library = folder / f'{source}.so'
    run('g++', *FLAGS, f'-I{include}', '-shared', HERE / f'{source}.cpp', '-o', library,
        *([f'-l{link}'] if link else []))
    return [tuple(map(int, line.split())) for line in run(counter, library).splitlines()]


def main():
    with tempfile.TemporaryDirectory() as name:
        folder = pathlib.Path(name)
        include = headers(folder)
        counter = folder / 'count'
        run('g++', '-std=c++17', HERE / 'count.cpp', '-o', counter, '-ldl')
        frame = size_on_arm(folder, include, 'none')
        print('| library | plug-in, KiB on armhf | shared library, KiB | seconds to compile '
              '| reading a task: allocations, bytes | writing 20 tasks: allocations, bytes |')
        print('|---|---|---|---|---|---|')
        for title, source, shared in LIBRARIES:
            own = (size_on_arm(folder, include, source) - frame) / 1024
            beside = f'{loaded_bytes(shared_library(folder, shared[0])) / 1024:.0f}' if shared else '0'
            read, written = allocations(folder, include, source, shared and shared[1], counter)
            print(f'| {title} | {own:.0f} | {beside} | {seconds_to_compile(include, source):.1f} '
                  f'| {read[0]}, {read[1]:,} | {written[0]}, {written[1]:,} |')


if __name__ == '__main__':
    main()

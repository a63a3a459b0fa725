# Every dependency is a Debian package (see scripts/bootstrap).

find_package(Threads REQUIRED)
find_package(fmt 9 CONFIG REQUIRED)
find_package(spdlog 1.10 CONFIG REQUIRED)
find_package(PkgConfig REQUIRED)

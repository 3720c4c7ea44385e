# Everything that is installed and called, found once.
find_package(PkgConfig REQUIRED)
find_package(nlohmann_json 3.9 REQUIRED)
find_package(fmt REQUIRED)
find_package(SQLite3 3.24 REQUIRED)
find_package(CLI11 REQUIRED)
find_package(ICU 60 REQUIRED COMPONENTS uc i18n)
pkg_check_modules(LIBPLIST REQUIRED IMPORTED_TARGET GLOBAL libplist-2.0)
pkg_check_modules(CAIRO REQUIRED IMPORTED_TARGET GLOBAL cairo)
if(CMAKE_SYSTEM_NAME STREQUAL "Linux")
  pkg_check_modules(PIPEWIRE REQUIRED IMPORTED_TARGET GLOBAL libpipewire-0.3)
  # The library's calls are macros made of GNU statement expressions, which Clang reports wherever they are used. GCC
  # knows no such warnings and passes over the words.
  target_compile_options(PkgConfig::PIPEWIRE INTERFACE
    -Wno-gnu-statement-expression -Wno-gnu-statement-expression-from-macro-expansion
    -Wno-gnu-zero-variadic-macro-arguments)
  pkg_check_modules(SYSTEMD REQUIRED IMPORTED_TARGET GLOBAL libsystemd)
endif()

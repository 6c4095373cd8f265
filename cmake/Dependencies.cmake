# All dependencies come from Debian packages; ./test and ./run install them.
find_package(PkgConfig REQUIRED)
find_package(Threads REQUIRED)
find_package(GTest REQUIRED)
find_package(nlohmann_json 3 REQUIRED)
find_package(CLI11 REQUIRED)
find_package(ICU REQUIRED COMPONENTS uc i18n)
find_package(JPEG REQUIRED)
find_package(PNG REQUIRED)
find_package(SQLite3 REQUIRED)
find_package(Boost 1.74 REQUIRED)
pkg_check_modules(CAIRO REQUIRED IMPORTED_TARGET GLOBAL cairo)
pkg_check_modules(TAGLIB REQUIRED IMPORTED_TARGET GLOBAL taglib)
# Sound: FFmpeg decodes (and, for recordings and test files, encodes) every format the media
# library scans; PortAudio reaches the device; Rubber Band stretches time for keylock.
pkg_check_modules(FFMPEG REQUIRED IMPORTED_TARGET GLOBAL libavformat libavcodec libavutil libswresample)
pkg_check_modules(PORTAUDIO REQUIRED IMPORTED_TARGET GLOBAL portaudio-2.0)
pkg_check_modules(RUBBERBAND REQUIRED IMPORTED_TARGET GLOBAL rubberband)
# Analysis: the Queen Mary DSP library (no pkg-config file in Debian) and libebur128.
find_path(QM_DSP_INCLUDE_DIR qm-dsp/dsp/tempotracking/TempoTrackV2.h REQUIRED)
find_library(QM_DSP_LIBRARY qm-dsp REQUIRED)
add_library(vexo_qm_dsp INTERFACE)
target_include_directories(vexo_qm_dsp SYSTEM INTERFACE ${QM_DSP_INCLUDE_DIR}/qm-dsp)
target_link_libraries(vexo_qm_dsp INTERFACE ${QM_DSP_LIBRARY})
pkg_check_modules(EBUR128 REQUIRED IMPORTED_TARGET GLOBAL libebur128)
# The face's network mode: TLS through OpenSSL, the pairing QR code through libqrencode.
find_package(OpenSSL REQUIRED)
pkg_check_modules(QRENCODE REQUIRED IMPORTED_TARGET GLOBAL libqrencode)
# Service readiness and watchdog when started by systemd.
pkg_check_modules(LIBSYSTEMD REQUIRED IMPORTED_TARGET GLOBAL libsystemd)
if(VEXO_BUILD_BENCHMARKS)
  find_package(benchmark REQUIRED)
  # Only the keyed-archive benchmark's floor uses libplist; our own code never does.
  pkg_check_modules(LIBPLIST REQUIRED IMPORTED_TARGET GLOBAL libplist-2.0)
endif()

# Asio is header-only (Debian's libasio-dev); used standalone, without Boost.
find_path(ASIO_INCLUDE_DIR asio.hpp REQUIRED)
add_library(vexo_asio INTERFACE)
target_include_directories(vexo_asio SYSTEM INTERFACE ${ASIO_INCLUDE_DIR})
target_compile_definitions(vexo_asio INTERFACE ASIO_STANDALONE ASIO_NO_DEPRECATED)
target_link_libraries(vexo_asio INTERFACE Threads::Threads)

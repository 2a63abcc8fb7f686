# The Debian package `brimvale`: both programs, the desktop entry, icons, AppStream metadata,
# manual pages and shell completions. Make it from a release build:
#
#   cmake --preset release
#   cmake --build --preset release      # or --target brimvale brimvale-cli brimvale_package_files
#   (cd build/release && cpack -G DEB)  # build/release/brimvale_VERSION_amd64.deb
#
# scripts/test-package does the same, then checks the package by installing it.

# A release build makes the package's files with everything else, so that cpack finds them.
if(CMAKE_BUILD_TYPE STREQUAL "Release" AND NOT BRIMVALE_SANITIZERS)
    set(package_files_default ON)
else()
    set(package_files_default OFF)
endif()
option(BRIMVALE_PACKAGE_FILES "Generate the package's files (manual pages, icons) with every build"
       ${package_files_default})

# cpack (and the install target) install what is built and build nothing themselves: packaging a
# release build must not compile the test suite and the benchmarks first.
set(CMAKE_SKIP_INSTALL_ALL_DEPENDENCY ON)
set(CMAKE_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ
    GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)

set(BRIMVALE_PACKAGE_MAINTAINER
    "Brimvale maintainers <maintainers@users.noreply.c-seed-9f7ce5b4.example>"
    CACHE STRING "The Maintainer field of the Debian package")
set(BRIMVALE_APPSTREAM_ID "io.github.brimvale.Brimvale")

set(packaging_source "${CMAKE_CURRENT_LIST_DIR}")
set(packaging_build "${CMAKE_BINARY_DIR}/packaging")
file(MAKE_DIRECTORY "${packaging_build}")

# The changelog's newest entry is this version's; its date is the release date in the metadata.
file(STRINGS "${packaging_source}/changelog" changelog_heading LIMIT_COUNT 1 REGEX "^brimvale \\(")
file(STRINGS "${packaging_source}/changelog" changelog_signature LIMIT_COUNT 1 REGEX "^ -- ")
if(NOT changelog_heading MATCHES "^brimvale \\(([^)]+)\\)")
    message(FATAL_ERROR "packaging/changelog: the first line is not 'brimvale (VERSION) …'")
endif()
if(NOT CMAKE_MATCH_1 STREQUAL PROJECT_VERSION)
    message(FATAL_ERROR "packaging/changelog: its newest entry is ${CMAKE_MATCH_1}, the project is "
                        "${PROJECT_VERSION}; add an entry for ${PROJECT_VERSION} at the top")
endif()
if(NOT changelog_signature MATCHES ", ([0-9][0-9]?) ([A-Z][a-z][a-z]) ([0-9][0-9][0-9][0-9]) ")
    message(FATAL_ERROR "packaging/changelog: the newest entry's ' -- ' line has no date")
endif()
set(release_year "${CMAKE_MATCH_3}")
set(release_day "${CMAKE_MATCH_1}")
set(month_names Jan Feb Mar Apr May Jun Jul Aug Sep Oct Nov Dec)
list(FIND month_names "${CMAKE_MATCH_2}" release_month)
if(release_month EQUAL -1)
    message(FATAL_ERROR "packaging/changelog: the newest entry's date has no month")
endif()
math(EXPR release_month "${release_month} + 1" OUTPUT_FORMAT DECIMAL)
if(release_month LESS 10)
    set(release_month "0${release_month}")
endif()
if(release_day LESS 10)
    set(release_day "0${release_day}")
endif()
set(BRIMVALE_RELEASE_DATE "${release_year}-${release_month}-${release_day}")
configure_file("${packaging_source}/${BRIMVALE_APPSTREAM_ID}.metainfo.xml.in"
               "${packaging_build}/${BRIMVALE_APPSTREAM_ID}.metainfo.xml" @ONLY)

# Generated files: the manual pages from the programs' own --help, PNG icons from the SVG, the
# compressed changelog. Made when the target brimvale_package_files is built (or with every build
# when BRIMVALE_PACKAGE_FILES is on).
find_package(Python3 REQUIRED COMPONENTS Interpreter)
find_program(BRIMVALE_RSVG_CONVERT rsvg-convert)
find_program(BRIMVALE_GZIP gzip REQUIRED)

set(package_files)

foreach(program brimvale-cli brimvale)
    set(page "${packaging_build}/${program}.1")
    set(options)
    if(program STREQUAL "brimvale-cli")
        set(options --commands --see-also "brimvale(1)" --see-also "rclone(1)")
    else()
        set(options --see-also "brimvale-cli(1)" --see-also "rclone(1)")
    endif()
    add_custom_command(
        OUTPUT "${page}.gz"
        COMMAND ${CMAKE_COMMAND} -E env BRIMVALE_NO_HEAP_TUNING=1
                "${Python3_EXECUTABLE}" "${packaging_source}/make-manpage.py"
                "$<TARGET_FILE:${program}>"
                --name ${program} --version ${PROJECT_VERSION} --output "${page}" ${options}
        COMMAND "${BRIMVALE_GZIP}" -9nf "${page}"
        DEPENDS ${program} "${packaging_source}/make-manpage.py"
        COMMENT "Writing the manual page of ${program} from its --help"
        VERBATIM)
    list(APPEND package_files "${page}.gz")
endforeach()

set(icon_svg "${PROJECT_SOURCE_DIR}/app/resources/brimvale.svg")
set(icon_sizes 16 22 24 32 48 64 128 256 512)
if(BRIMVALE_RSVG_CONVERT)
    foreach(size ${icon_sizes})
        set(png "${packaging_build}/icons/${size}x${size}/brimvale.png")
        add_custom_command(
            OUTPUT "${png}"
            COMMAND ${CMAKE_COMMAND} -E make_directory "${packaging_build}/icons/${size}x${size}"
            COMMAND "${BRIMVALE_RSVG_CONVERT}" --width ${size} --height ${size} --output "${png}"
                    "${icon_svg}"
            DEPENDS "${icon_svg}"
            COMMENT "Drawing the ${size}x${size} icon"
            VERBATIM)
        list(APPEND package_files "${png}")
    endforeach()
else()
    # Configuring must not need the tool (the sanitizer and fuzz builds never package); making
    # the package files does.
    add_custom_command(
        OUTPUT "${packaging_build}/icons/missing-rsvg-convert"
        COMMAND ${CMAKE_COMMAND} -E echo "rsvg-convert (Debian package librsvg2-bin) draws the"
                "icons: run scripts/bootstrap, then configure again"
        COMMAND ${CMAKE_COMMAND} -E false
        VERBATIM)
    list(APPEND package_files "${packaging_build}/icons/missing-rsvg-convert")
endif()

add_custom_command(
    OUTPUT "${packaging_build}/changelog.gz"
    COMMAND ${CMAKE_COMMAND} -E copy "${packaging_source}/changelog" "${packaging_build}/changelog"
    COMMAND "${BRIMVALE_GZIP}" -9nf "${packaging_build}/changelog"
    DEPENDS "${packaging_source}/changelog"
    VERBATIM)
list(APPEND package_files "${packaging_build}/changelog.gz")

if(BRIMVALE_PACKAGE_FILES)
    add_custom_target(brimvale_package_files ALL DEPENDS ${package_files})
else()
    add_custom_target(brimvale_package_files DEPENDS ${package_files})
endif()

# Where the files go. The programs' own rules are in cli/ and app/. rclone is not shipped: the
# package depends on Debian's, /usr/bin/rclone, which is beside /usr/bin/brimvale, where the
# application looks right after its bundled copies (core/rclone/RclonePathResolver).
include(GNUInstallDirs)
install(FILES "${packaging_source}/brimvale.desktop"
        DESTINATION "${CMAKE_INSTALL_DATADIR}/applications")
install(FILES "${packaging_build}/${BRIMVALE_APPSTREAM_ID}.metainfo.xml"
        DESTINATION "${CMAKE_INSTALL_DATADIR}/metainfo")
install(FILES "${icon_svg}" DESTINATION "${CMAKE_INSTALL_DATADIR}/icons/hicolor/scalable/apps")
foreach(size ${icon_sizes})
    install(FILES "${packaging_build}/icons/${size}x${size}/brimvale.png"
            DESTINATION "${CMAKE_INSTALL_DATADIR}/icons/hicolor/${size}x${size}/apps")
endforeach()
install(FILES "${packaging_build}/brimvale-cli.1.gz" "${packaging_build}/brimvale.1.gz"
        DESTINATION "${CMAKE_INSTALL_MANDIR}/man1")
install(FILES "${packaging_source}/completions/brimvale-cli.bash"
        DESTINATION "${CMAKE_INSTALL_DATADIR}/bash-completion/completions" RENAME brimvale-cli)
install(FILES "${packaging_source}/completions/brimvale.bash"
        DESTINATION "${CMAKE_INSTALL_DATADIR}/bash-completion/completions" RENAME brimvale)
install(FILES "${packaging_source}/completions/_brimvale-cli"
              "${packaging_source}/completions/_brimvale"
        DESTINATION "${CMAKE_INSTALL_DATADIR}/zsh/vendor-completions")
install(FILES "${packaging_source}/copyright" "${packaging_build}/changelog.gz"
        DESTINATION "${CMAKE_INSTALL_DATADIR}/doc/brimvale")

# The package.
set(CPACK_GENERATOR "DEB")
set(CPACK_PACKAGE_NAME "brimvale")
set(CPACK_PACKAGE_VENDOR "The Brimvale developers")
set(CPACK_PACKAGE_VERSION "${PROJECT_VERSION}")
set(CPACK_PACKAGING_INSTALL_PREFIX "/usr")
set(CPACK_STRIP_FILES ON)
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "disk usage browser for local disks and cloud accounts")
set(CPACK_PACKAGE_DESCRIPTION
    "Brimvale shows where storage space goes, on local disks and in cloud accounts.
It lists every file and folder, adds the sizes up the tree and lets you browse
the result, largest first, with each item's share of its folder. Finished scans
are saved, so an account opens at once and is scanned again only when you ask.

Cloud accounts (Google Drive, Dropbox, OneDrive, Box, Amazon S3, Cloudflare R2,
Google Cloud Storage, Azure Blob Storage, FTP, SFTP and every other service
rclone supports) are reached through rclone.

The package holds the desktop application, brimvale, and its command-line twin,
brimvale-cli, which writes its results as tables or as JSON.")
set(CPACK_DEBIAN_FILE_NAME "DEB-DEFAULT")
set(CPACK_DEBIAN_PACKAGE_MAINTAINER "${BRIMVALE_PACKAGE_MAINTAINER}")
set(CPACK_DEBIAN_PACKAGE_SECTION "utils")
set(CPACK_DEBIAN_PACKAGE_PRIORITY "optional")
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
# rclone is run, not linked; the SVG icon engine is a Qt plugin, loaded, not linked.
set(CPACK_DEBIAN_PACKAGE_DEPENDS "rclone, libqt6svg6")
set(CPACK_DEBIAN_PACKAGE_RECOMMENDS "qt6-wayland")
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_DEBIAN_COMPRESSION_TYPE "xz")
set(CPACK_SOURCE_GENERATOR "")
include(CPack)

# What is installed, in three components: library, development and tools. cmake/Packages.cmake makes packages of them.
include(CMakePackageConfigHelpers)

set(MOXEL_INSTALL_CMAKEDIR "${CMAKE_INSTALL_LIBDIR}/cmake/MoxelClient")

# The classes' headers include these by "Values/" and "Platform/", which the compiler finds beside them in Moxel/.
set(values_headers Array Data DateText DeepCopy Dictionary Format KeyedArchive Node Object PropertyList String Value)
set(platform_headers Export HIDDevice HIDValue NotificationCenter Result RunLoop Session Thread WorkItem)
list(TRANSFORM values_headers REPLACE "(.+)" "${PROJECT_SOURCE_DIR}/Values/\\1.h")
list(TRANSFORM platform_headers REPLACE "(.+)" "${PROJECT_SOURCE_DIR}/Platform/\\1.h")
install(DIRECTORY "Moxel Client/include/Moxel" DESTINATION "${CMAKE_INSTALL_INCLUDEDIR}" COMPONENT development)
install(FILES ${values_headers} DESTINATION "${CMAKE_INSTALL_INCLUDEDIR}/Moxel/Values" COMPONENT development)
install(FILES ${platform_headers} DESTINATION "${CMAKE_INSTALL_INCLUDEDIR}/Moxel/Platform" COMPONENT development)

install(TARGETS MoxelClient EXPORT MoxelClient
    LIBRARY DESTINATION "${CMAKE_INSTALL_LIBDIR}" COMPONENT library NAMELINK_COMPONENT development
    INCLUDES DESTINATION "${CMAKE_INSTALL_INCLUDEDIR}")
install(EXPORT MoxelClient NAMESPACE Moxel:: FILE MoxelClientTargets.cmake DESTINATION "${MOXEL_INSTALL_CMAKEDIR}"
    COMPONENT development)

# A file of targets of its own, so that who does without the kit needs nothing of it.
install(DIRECTORY "Moxel Testing/include/Moxel" DESTINATION "${CMAKE_INSTALL_INCLUDEDIR}" COMPONENT development)
install(TARGETS MoxelTestDaemon EXPORT MoxelTestDaemon
    LIBRARY DESTINATION "${CMAKE_INSTALL_LIBDIR}" COMPONENT development
    INCLUDES DESTINATION "${CMAKE_INSTALL_INCLUDEDIR}")
install(EXPORT MoxelTestDaemon NAMESPACE Moxel:: FILE MoxelTestDaemonTargets.cmake DESTINATION "${MOXEL_INSTALL_CMAKEDIR}"
    COMPONENT development)

configure_package_config_file(cmake/MoxelClientConfig.cmake.in "${PROJECT_BINARY_DIR}/MoxelClientConfig.cmake"
    INSTALL_DESTINATION "${MOXEL_INSTALL_CMAKEDIR}")
write_basic_package_version_file("${PROJECT_BINARY_DIR}/MoxelClientConfigVersion.cmake" COMPATIBILITY SameMajorVersion)
install(FILES "${PROJECT_BINARY_DIR}/MoxelClientConfig.cmake" "${PROJECT_BINARY_DIR}/MoxelClientConfigVersion.cmake"
    DESTINATION "${MOXEL_INSTALL_CMAKEDIR}" COMPONENT development)

# pkg-config files say where they lie, so that a tree that is moved, or installed below DESTDIR, still works.
file(RELATIVE_PATH MOXEL_PREFIX_FROM_PC "/${CMAKE_INSTALL_LIBDIR}/pkgconfig" "/")
string(REGEX REPLACE "/$" "" MOXEL_PREFIX_FROM_PC "${MOXEL_PREFIX_FROM_PC}")
foreach(name moxel-client moxel-test-daemon)
    configure_file(cmake/${name}.pc.in "${PROJECT_BINARY_DIR}/${name}.pc" @ONLY)
    install(FILES "${PROJECT_BINARY_DIR}/${name}.pc" DESTINATION "${CMAKE_INSTALL_LIBDIR}/pkgconfig" COMPONENT development)
endforeach()

install(TARGETS moxelctl moxeld RUNTIME DESTINATION "${CMAKE_INSTALL_BINDIR}" COMPONENT tools)
install(FILES "Moxel Daemon/Linux/70-moxel.rules" "Moxel Daemon/Linux/70-moxel-input.rules"
    DESTINATION "lib/udev/rules.d" COMPONENT tools)
install(FILES "Moxel Daemon/Linux/moxeld.service" DESTINATION "lib/systemd/user" COMPONENT tools)
install(FILES "Moxel Daemon/Traces/buttons.trace" "Moxel Daemon/Traces/demo.trace" "Moxel Daemon/Traces/idle.trace"
              "Moxel Daemon/Traces/messages.trace"
    DESTINATION "${CMAKE_INSTALL_DATADIR}/Moxel/Traces" COMPONENT tools)
install(FILES Documentation/Manual/moxeld.1 Documentation/Manual/moxelctl.1 DESTINATION "${CMAKE_INSTALL_MANDIR}/man1"
    COMPONENT tools)

# Shells complete what the manual pages describe.
set(completions "${PROJECT_BINARY_DIR}/completions")
foreach(shell bash zsh)
    foreach(program moxeld moxelctl)
        set(page "${PROJECT_SOURCE_DIR}/Documentation/Manual/${program}.1")
        set(script "${PROJECT_SOURCE_DIR}/Tools/completion.awk")
        add_custom_command(OUTPUT "${completions}/${program}.${shell}"
            COMMAND "${CMAKE_COMMAND}" -E make_directory "${completions}"
            COMMAND awk -v shell=${shell} -v program=${program} -f "${script}" "${page}" > "${completions}/${program}.${shell}"
            DEPENDS "${page}" "${script}" VERBATIM)
        list(APPEND completion_files "${completions}/${program}.${shell}")
    endforeach()
endforeach()
add_custom_target(completions ALL DEPENDS ${completion_files})
foreach(program moxeld moxelctl)
    install(FILES "${completions}/${program}.bash" DESTINATION "${CMAKE_INSTALL_DATADIR}/bash-completion/completions"
        RENAME ${program} COMPONENT tools)
    install(FILES "${completions}/${program}.zsh" DESTINATION "${CMAKE_INSTALL_DATADIR}/zsh/vendor-completions"
        RENAME _${program} COMPONENT tools)
endforeach()

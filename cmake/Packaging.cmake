# What is installed, and the packages that CPack makes of it: a zip and an MSI for Windows, a .deb for
# Linux.
#
#     cpack --config build/windows/CPackConfig.cmake -B build/packages
#     cpack --config build/linux/CPackConfig.cmake -B build/packages

set(CPACK_PACKAGE_NAME quillfence)
set(CPACK_PACKAGE_VENDOR "Quillfence")
set(CPACK_PACKAGE_CONTACT "Quillfence maintainers <maintainers@quillfence.example>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "${PROJECT_DESCRIPTION}")
set(CPACK_PACKAGE_CHECKSUM SHA256)
set(CPACK_VERBATIM_VARIABLES ON)

if(WIN32)
    set(CPACK_GENERATOR ZIP)
    set(CPACK_POST_BUILD_SCRIPTS "${PROJECT_SOURCE_DIR}/cmake/WindowsPackages.cmake")
    set(CPACK_QUILLFENCE_SOURCE "${PROJECT_SOURCE_DIR}")
    set(CPACK_QUILLFENCE_BUILD "${PROJECT_BINARY_DIR}")
    set(CPACK_QUILLFENCE_STRIP "${CMAKE_STRIP}")
    set(CPACK_SYSTEM_NAME windows-x86_64)
    install(TARGETS quillfence quillfence-data quillfence-replayer RUNTIME DESTINATION .)
    install(FILES README.md CHANGES.md packaging/windows/install.cmd
                  packaging/windows/uninstall.cmd DESTINATION .)
    install(DIRECTORY docs examples DESTINATION .)
else()
    set(CPACK_GENERATOR DEB)
    set(CPACK_STRIP_FILES ON)
    set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
    set(CPACK_DEBIAN_PACKAGE_SECTION mail)
    set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
    set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
    include(GNUInstallDirs)
    install(TARGETS quillfence quillfence-data quillfence-replayer
            RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
    install(FILES README.md CHANGES.md DESTINATION share/doc/quillfence)
    install(DIRECTORY docs/ DESTINATION share/doc/quillfence/docs)
    install(DIRECTORY examples DESTINATION share/doc/quillfence
            REGEX "/scale/.*\\.(py|sh)$"
            PERMISSIONS OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ
                        WORLD_EXECUTE)
    install(FILES docs/man/quillfence.1 docs/man/quillfence-data.1 docs/man/quillfence-replayer.1
            DESTINATION share/man/man1)
    install(FILES packaging/completion/quillfence packaging/completion/quillfence-data
                  packaging/completion/quillfence-replayer
            DESTINATION share/bash-completion/completions)
    # The service: its units and its user, and what becomes of its log.
    install(FILES packaging/systemd/quillfence-policyd.service
                  packaging/systemd/quillfence-policyd.socket
            DESTINATION lib/systemd/system)
    install(FILES packaging/systemd/quillfence.sysusers DESTINATION lib/sysusers.d
            RENAME quillfence.conf)
    install(FILES packaging/logrotate/quillfence-policyd DESTINATION /etc/logrotate.d)
    install(FILES packaging/prometheus/quillfence.rules.yml
            DESTINATION share/doc/quillfence/packaging/prometheus)
    set(CPACK_DEBIAN_PACKAGE_CONTROL_EXTRA "${PROJECT_SOURCE_DIR}/packaging/debian/conffiles"
                                           "${PROJECT_SOURCE_DIR}/packaging/debian/postinst")
endif()
include(CPack)

# What is installed. For Windows, CPack makes a zip and an MSI of it:
#
#     cpack --config build/windows/CPackConfig.cmake -B build/packages
#
# Debian's packages are made by debian/, which shares what is installed here out among them:
#
#     scripts/debian-packages

if(WIN32)
    set(CPACK_PACKAGE_NAME quillfence)
    set(CPACK_PACKAGE_VENDOR "Quillfence")
    set(CPACK_PACKAGE_CONTACT "Quillfence maintainers <maintainers@quillfence.example>")
    set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "${PROJECT_DESCRIPTION}")
    set(CPACK_PACKAGE_CHECKSUM SHA256)
    set(CPACK_VERBATIM_VARIABLES ON)
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
    include(CPack)
else()
    include(GNUInstallDirs)
    install(TARGETS quillfence quillfence-data quillfence-replayer
            RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
    install(FILES README.md CHANGES.md DESTINATION share/doc/quillfence)
    install(DIRECTORY docs/ DESTINATION share/doc/quillfence/docs PATTERN man EXCLUDE)
    install(DIRECTORY examples DESTINATION share/doc/quillfence
            REGEX "/scale/.*\\.(py|sh)$"
            PERMISSIONS OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ
                        WORLD_EXECUTE)
    install(FILES docs/man/quillfence.1 docs/man/quillfence-data.1 docs/man/quillfence-replayer.1
            DESTINATION share/man/man1)
    install(FILES packaging/completion/quillfence packaging/completion/quillfence-data
                  packaging/completion/quillfence-replayer
            DESTINATION share/bash-completion/completions)
    # The service: its units and its user, what becomes of its log, and when to raise the alarm.
    install(FILES packaging/systemd/quillfence-policyd.service
                  packaging/systemd/quillfence-policyd.socket
            DESTINATION lib/systemd/system)
    install(FILES packaging/systemd/quillfence.sysusers DESTINATION lib/sysusers.d
            RENAME quillfence.conf)
    install(FILES packaging/logrotate/quillfence-policyd DESTINATION /etc/logrotate.d)
    install(FILES packaging/prometheus/quillfence.rules.yml
            DESTINATION share/doc/quillfence-policyd/examples)
endif()

# Run by CPack behind its own zip, whose entries have the order, times and owners of the folder that
# it was made of: puts one without those into its place, and makes the MSI.
find_program(python python3 REQUIRED)
execute_process(
    COMMAND "${python}" -B "${CPACK_QUILLFENCE_SOURCE}/packaging/windows/make_packages.py"
            --strip "${CPACK_QUILLFENCE_STRIP}" --version "${CPACK_PACKAGE_VERSION}"
            --build "${CPACK_QUILLFENCE_BUILD}" "${CPACK_TEMPORARY_DIRECTORY}"
            "${CPACK_PACKAGE_FILES}" "${CPACK_PACKAGE_DIRECTORY}/${CPACK_PACKAGE_FILE_NAME}.msi"
    COMMAND_ERROR_IS_FATAL ANY)

# SPDX-License-Identifier: MIT
# Packs once more, with Debian's own tool: from CPack the builder's umask shows, in folders that lock everybody else out of /usr, and
# in the parts of the package.
set(folder "${CPACK_TEMPORARY_DIRECTORY}-again")
foreach(package IN LISTS CPACK_PACKAGE_FILES)
  file(REMOVE_RECURSE "${folder}")
  execute_process(COMMAND dpkg-deb --raw-extract "${package}" "${folder}" COMMAND_ERROR_IS_FATAL ANY)
  file(CHMOD_RECURSE "${folder}" DIRECTORY_PERMISSIONS
    OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
  execute_process(COMMAND dpkg-deb --root-owner-group -Zxz --build "${folder}" "${package}" OUTPUT_QUIET COMMAND_ERROR_IS_FATAL ANY)
endforeach()

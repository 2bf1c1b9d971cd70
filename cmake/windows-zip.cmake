# lexctl3-VERSION-win64.zip: both programs, the README, the examples, the
# service description and the manual pages as text, in one folder.

# lexctl3's page comes from the Linux build's table: the same commands, and its
# writer needs POSIX streams.
set(LEXCTL_LINUX_MANPAGE "" CACHE FILEPATH "lexctl3.1 made by the Linux build (packaging/man)")

find_program(LEXCTL_GROFF groff REQUIRED)
set(zip_name lexctl3-${PROJECT_VERSION}-win64)
set(zip_dir ${CMAKE_BINARY_DIR}/zip/${zip_name})
set(zip_file ${CMAKE_BINARY_DIR}/${zip_name}.zip)
file(MAKE_DIRECTORY ${CMAKE_BINARY_DIR}/zip)
add_custom_command(
  OUTPUT ${zip_file}
  COMMAND ${CMAKE_COMMAND} -E rm -rf ${zip_dir}
  COMMAND ${CMAKE_COMMAND} -E make_directory ${zip_dir}/examples
  COMMAND ${LEXCTL_GROFF} -man -Tutf8 -P-cbou ${LEXCTL_LINUX_MANPAGE} > ${zip_dir}/lexctl3.txt
  COMMAND ${LEXCTL_GROFF} -man -Tutf8 -P-cbou ${PROJECT_SOURCE_DIR}/packaging/lexsim.1 > ${zip_dir}/lexsim.txt
  COMMAND ${CMAKE_COMMAND} -E copy $<TARGET_FILE:lexctl3> $<TARGET_FILE:lexsim> ${PROJECT_SOURCE_DIR}/README.md
          ${LEXSERVICE_WSDL} ${LEXSERVICE_XSD} ${zip_dir}
  COMMAND ${CMAKE_COMMAND} -E copy_directory ${PROJECT_SOURCE_DIR}/examples ${zip_dir}/examples
  COMMAND ${CMAKE_COMMAND} -E rm -f ${zip_file}
  COMMAND ${CMAKE_COMMAND} -E tar cf ${zip_file} --format=zip ${zip_name}
  WORKING_DIRECTORY ${CMAKE_BINARY_DIR}/zip
  DEPENDS lexctl3 lexsim ${LEXCTL_LINUX_MANPAGE} ${PROJECT_SOURCE_DIR}/README.md
          ${PROJECT_SOURCE_DIR}/packaging/lexsim.1
  COMMENT "${zip_name}.zip"
  VERBATIM)
add_custom_target(zip DEPENDS ${zip_file})

# What is inside besides our own sources: a bill of materials (SPDX 2.3) and the notices of every library, with the versions
# of the Debian packages that it was built from.

# varnel_material(NAME PACKAGE LICENSE RELATIONSHIP): a library that the product holds, and where Debian has its notice.
set(materials "")
set(relationships "")
set(notices "varnel holds parts of these libraries. Each is used under the terms that follow its name.\n")
function(varnel_material name package license relationship)
  execute_process(COMMAND dpkg-query --show "--showformat=\${Version}" ${package}
    OUTPUT_VARIABLE version ERROR_QUIET RESULT_VARIABLE result)
  if(NOT result EQUAL 0)
    set(version NOASSERTION)
  endif()
  string(REGEX REPLACE "[^A-Za-z0-9.-]" "-" id ${name})
  string(APPEND materials ",
    { \"SPDXID\": \"SPDXRef-${id}\", \"name\": \"${name}\", \"versionInfo\": \"${version}\",
      \"supplier\": \"Organization: Debian\", \"downloadLocation\": \"NOASSERTION\", \"filesAnalyzed\": false,
      \"licenseConcluded\": \"${license}\", \"licenseDeclared\": \"${license}\", \"copyrightText\": \"NOASSERTION\",
      \"comment\": \"the Debian package ${package}\" }")
  string(APPEND relationships ",
    { \"spdxElementId\": \"SPDXRef-varnel\", \"relationshipType\": \"${relationship}\", \"relatedSpdxElement\": \"SPDXRef-${id}\" }")
  set(text "The notice lies in the package ${package}.\n")
  if(EXISTS /usr/share/doc/${package}/copyright)
    file(READ /usr/share/doc/${package}/copyright text)
  endif()
  string(REPEAT "=" 100 ruler)
  string(APPEND notices "\n${ruler}\n${name} (${package} ${version}), ${license}\n${ruler}\n\n${text}")
  return(PROPAGATE materials relationships notices)
endfunction()

set(gcc_license "GPL-3.0-or-later WITH GCC-exception-3.1")
varnel_material(CLI11 libcli11-dev BSD-3-Clause STATIC_LINK)
varnel_material(nlohmann-json nlohmann-json3-dev MIT STATIC_LINK)
varnel_material(Boost.PropertyTree libboost-dev BSL-1.0 STATIC_LINK)
if(MINGW)
  varnel_material(libstdc++ gcc-mingw-w64-x86-64-posix-runtime ${gcc_license} DYNAMIC_LINK)
  varnel_material(libgcc gcc-mingw-w64-x86-64-posix-runtime ${gcc_license} DYNAMIC_LINK)
  varnel_material(mingw-w64-runtime mingw-w64-x86-64-dev ZPL-2.1 STATIC_LINK)
  varnel_material(winpthreads mingw-w64-x86-64-dev "MIT AND BSD-3-Clause" DYNAMIC_LINK)
elseif(TARGET varnel_c)
  # libvarnel-c.so has the C++ runtime in itself.
  varnel_material(libstdc++ libstdc++-12-dev ${gcc_license} STATIC_LINK)
  varnel_material(libgcc libgcc-12-dev ${gcc_license} STATIC_LINK)
endif()

set(name varnel-${PROJECT_VERSION}-${CMAKE_SYSTEM_NAME}-x64)
string(UUID document NAMESPACE 6ba7b811-9dad-11d1-80b4-00c04fd430c8 NAME ${name} TYPE SHA1)
file(CONFIGURE OUTPUT ${PROJECT_BINARY_DIR}/varnel.spdx.json CONTENT "{
  \"spdxVersion\": \"SPDX-2.3\",
  \"dataLicense\": \"CC0-1.0\",
  \"SPDXID\": \"SPDXRef-DOCUMENT\",
  \"name\": \"${name}\",
  \"documentNamespace\": \"urn:uuid:${document}\",
  \"creationInfo\": { \"created\": \"${VARNEL_RELEASE_DATE}T00:00:00Z\", \"creators\": [ \"Organization: Tessel Storage\" ] },
  \"packages\": [
    { \"SPDXID\": \"SPDXRef-varnel\", \"name\": \"varnel\", \"versionInfo\": \"${PROJECT_VERSION}\",
      \"supplier\": \"Organization: Tessel Storage\", \"downloadLocation\": \"NOASSERTION\", \"filesAnalyzed\": false,
      \"licenseConcluded\": \"NOASSERTION\", \"licenseDeclared\": \"NOASSERTION\", \"copyrightText\": \"NOASSERTION\" }${materials}
  ],
  \"relationships\": [
    { \"spdxElementId\": \"SPDXRef-DOCUMENT\", \"relationshipType\": \"DESCRIBES\", \"relatedSpdxElement\": \"SPDXRef-varnel\" }${relationships}
  ]
}
" @ONLY)
file(CONFIGURE OUTPUT ${PROJECT_BINARY_DIR}/NOTICES.txt CONTENT "\@notices\@" @ONLY)

# The archives of the library hold them, too.
install(FILES ${PROJECT_BINARY_DIR}/varnel.spdx.json DESTINATION ${CMAKE_INSTALL_DATADIR}/varnel)
if(WIN32)
  install(FILES ${PROJECT_BINARY_DIR}/NOTICES.txt DESTINATION ${CMAKE_INSTALL_DATADIR}/varnel)
else()
  install(FILES ${PROJECT_BINARY_DIR}/NOTICES.txt RENAME copyright DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/varnelctl)
  install(FILES ${PROJECT_BINARY_DIR}/varnel.spdx.json DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/libvarnel-dev
    COMPONENT development)
  install(FILES ${PROJECT_BINARY_DIR}/NOTICES.txt RENAME copyright DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/libvarnel-dev
    COMPONENT development)
endif()

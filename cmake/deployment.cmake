# The values of a deployment. The defaults are for development: what they name is served on this
# machine, by simulation/feed, or lies with the tests.
option(KESTRELON_RELEASE "Refuse to build with values for development" OFF)

# A value that must match a pattern as a whole.
function(deployment_value name default pattern meaning)
  set(${name} "${default}" CACHE STRING "${meaning}")
  if(NOT ${name} MATCHES "^${pattern}$")
    message(FATAL_ERROR "${name} must be: ${meaning}. It is: ${${name}}")
  endif()
endfunction()

# The same for one whose default, and what else is named behind, no release may have.
function(development_value name default pattern meaning)
  deployment_value(${name} "${default}" "${pattern}" "${meaning}")
  set(refused "${default}" ${ARGN})
  if(KESTRELON_RELEASE AND ${name} IN_LIST refused)
    message(FATAL_ERROR "KESTRELON_RELEASE needs ${name}: ${meaning}. This one is for development: "
                        "${${name}}")
  endif()
endfunction()

set(host "[A-Za-z0-9.:-]+")
string(REPEAT "[0-9a-f]" 64 hex_64)
string(REPEAT "[0-9a-f]" 128 hex_128)

development_value(KESTRELON_FEED_BASE "https://localhost:28443" "https://${host}"
    "HTTPS address of the DROP feeds, without a path; the public ones are at https://www.spamhaus.org")

# That of a file which says "module for development builds", so that only tests have it.
development_value(KESTRELON_MODULE_SHA256
    4242fd806f41bd4910eb79e9b8c9b9995a4e47330c8204f523380dcf77dd9105 "${hex_64}"
    "SHA-256 of the module executable that ships, in 64 lower-case hexadecimal digits")
deployment_value(KESTRELON_MODULE_PUBLISHER "TARGON HELVERIK Ltd. Co." "[A-Za-z0-9 .,&'()-]+"
    "plain name of who signs that module")

development_value(KESTRELON_UPDATE_BASE "https://localhost:28444/"
    "https://${host}/([A-Za-z0-9_-]+/)*" "HTTPS address of the updates, ending in a slash")

# Their private halves are in tests/updates/keys.
set(key_form "public P-256 key, X then Y in 128 lower-case hexadecimal digits")
string(CONCAT development_update_key
       65a5a83aca4a317404016f40170b170afa67f0c408721b3255a7f1eed2aab714
       ada91ca404ea465d84188e35f696946118dc5921b9fd569c3ffe32dae16bff3f)
string(CONCAT development_update_backup_key
       a26d9c646b72c460ced2057edfc2e6293e59ffc9bec4657f464f8f4ca6b2ebe3
       065ad72971b2fdad79b9a363947863c8f39158b11ea494f3e264106c4e19446e)
development_value(KESTRELON_UPDATE_KEY ${development_update_key} "${hex_128}"
    "${key_form}, that update manifests are signed with" ${development_update_backup_key})
development_value(KESTRELON_UPDATE_BACKUP_KEY ${development_update_backup_key} "${hex_128}"
    "${key_form}, that stands in for the first should it be withdrawn" ${development_update_key})

# As the elements of arrays.
string(REGEX REPLACE "(..)" "0x\\1, " update_key_bytes "${KESTRELON_UPDATE_KEY}")
string(REGEX REPLACE "(..)" "0x\\1, " update_backup_key_bytes "${KESTRELON_UPDATE_BACKUP_KEY}")

configure_file(${PROJECT_SOURCE_DIR}/src/deployment.h.in
               ${PROJECT_BINARY_DIR}/generated/deployment.h @ONLY)

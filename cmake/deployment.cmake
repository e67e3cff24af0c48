# The values of a deployment. The defaults are for development: what they name is served on this
# machine, by simulation/feed.
option(KESTRELON_RELEASE "Refuse to build with values for development" OFF)

set(development_feed_base "https://localhost:28443")
set(KESTRELON_FEED_BASE ${development_feed_base} CACHE STRING
    "Base address of the DROP feeds; the public ones are at https://www.spamhaus.org")

if(KESTRELON_RELEASE AND KESTRELON_FEED_BASE STREQUAL development_feed_base)
  message(FATAL_ERROR "KESTRELON_RELEASE needs KESTRELON_FEED_BASE to name the public feeds")
endif()
if(NOT KESTRELON_FEED_BASE MATCHES "^https://[A-Za-z0-9.:-]+$")
  message(FATAL_ERROR "KESTRELON_FEED_BASE is no HTTPS address without a path: ${KESTRELON_FEED_BASE}")
endif()

# That of a file which says "module for development builds", so that only tests have it.
set(development_module_sha256 4242fd806f41bd4910eb79e9b8c9b9995a4e47330c8204f523380dcf77dd9105)
set(KESTRELON_MODULE_SHA256 ${development_module_sha256} CACHE STRING
    "SHA-256 of the module executable that ships with this build")
set(KESTRELON_MODULE_PUBLISHER "TARGON HELVERIK Ltd. Co." CACHE STRING "Who signs that module")

if(KESTRELON_RELEASE AND KESTRELON_MODULE_SHA256 STREQUAL development_module_sha256)
  message(FATAL_ERROR "KESTRELON_RELEASE needs KESTRELON_MODULE_SHA256 of the module that ships")
endif()
string(LENGTH "${KESTRELON_MODULE_SHA256}" module_sha256_length)
if(NOT KESTRELON_MODULE_SHA256 MATCHES "^[0-9a-f]+$" OR NOT module_sha256_length EQUAL 64)
  message(FATAL_ERROR "KESTRELON_MODULE_SHA256 is no SHA-256 in 64 lower-case hexadecimal digits: "
                      "${KESTRELON_MODULE_SHA256}")
endif()
if(NOT KESTRELON_MODULE_PUBLISHER MATCHES "^[A-Za-z0-9 .,&'()-]+$")
  message(FATAL_ERROR "KESTRELON_MODULE_PUBLISHER is no plain name: ${KESTRELON_MODULE_PUBLISHER}")
endif()

configure_file(${PROJECT_SOURCE_DIR}/src/deployment.h.in
               ${PROJECT_BINARY_DIR}/generated/deployment.h @ONLY)

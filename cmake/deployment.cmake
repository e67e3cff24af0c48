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

configure_file(${PROJECT_SOURCE_DIR}/src/deployment.h.in
               ${PROJECT_BINARY_DIR}/generated/deployment.h @ONLY)

# In the product, and in the build whose tests look for errors of memory: an access that the standard
# library's containers don't allow ends the process.
if(WIN32 OR KESTRELON_SANITIZE MATCHES "address")
  add_compile_definitions(_GLIBCXX_ASSERTIONS)
endif()

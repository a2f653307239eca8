# The libraries that the peers_*_bench programs race libkt against. Each one
# that is found becomes an interface target kt_peer_<NAME> carrying its link
# libraries and the definition KT_HAVE_<NAME>; a program takes the peers it
# races with kt_bench_peers(). A peer that is not found is left out, with a
# status line saying so, and the programs build without it.
#
# Another peer: find it below, then call kt_add_peer(<NAME> <link items>...).

function(kt_add_peer name)
  add_library(kt_peer_${name} INTERFACE)
  target_link_libraries(kt_peer_${name} INTERFACE ${ARGN})
  target_compile_definitions(kt_peer_${name} INTERFACE KT_HAVE_${name})
  message(STATUS "Benchmark peer ${name}: found")
endfunction()

# kt_bench_peers(<program> <NAME>...): links the program with each named peer
# that was found.
function(kt_bench_peers program)
  foreach(name IN LISTS ARGN)
    if(TARGET kt_peer_${name})
      target_link_libraries(${program} PRIVATE kt_peer_${name})
    else()
      message(STATUS "Benchmark peer ${name}: not found, ${program} runs without it")
    endif()
  endforeach()
endfunction()

find_package(OpenSSL QUIET COMPONENTS Crypto)
if(OpenSSL_FOUND)
  kt_add_peer(OPENSSL OpenSSL::Crypto)
endif()

find_package(absl CONFIG QUIET)
if(absl_FOUND)
  kt_add_peer(ABSL absl::strings)
endif()

# Boost.Algorithm is header-only; Boost.URL (1.81 on) is a library.
find_package(Boost CONFIG QUIET OPTIONAL_COMPONENTS url)
if(Boost_FOUND)
  kt_add_peer(BOOST Boost::headers)
  if(TARGET Boost::url)
    kt_add_peer(BOOST_URL Boost::url)
  endif()
endif()

find_package(CURL QUIET)
if(CURL_FOUND)
  kt_add_peer(CURL CURL::libcurl)
endif()

find_package(uriparser CONFIG QUIET)
if(uriparser_FOUND)
  kt_add_peer(URIPARSER uriparser::uriparser)
endif()

find_package(Poco CONFIG QUIET COMPONENTS Foundation)
if(Poco_FOUND)
  kt_add_peer(POCO Poco::Foundation)
endif()

find_package(fmt CONFIG QUIET)
if(fmt_FOUND)
  kt_add_peer(FMT fmt::fmt)
endif()

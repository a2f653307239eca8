# The libraries that the peers_*_bench programs race libkt against. Each one
# that is found becomes an interface target kt_peer_<NAME> carrying its link
# libraries and the definition KT_HAVE_<NAME>; a program takes the peers it
# races with kt_bench_peers(). A peer that is not found is left out, with a
# status line saying so, and the programs build without it.
#
# Another peer: find its package below, then call kt_add_peer(<NAME> <target>).

# kt_add_peer(<NAME> <target>): makes the peer when its package gave <target>.
function(kt_add_peer name target)
  if(NOT TARGET ${target})
    return()
  endif()
  add_library(kt_peer_${name} INTERFACE)
  target_link_libraries(kt_peer_${name} INTERFACE ${target})
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

# Boost.Algorithm is header-only; Boost.URL (1.81 on) is a library.
find_package(OpenSSL QUIET COMPONENTS Crypto)
find_package(absl CONFIG QUIET)
find_package(Boost CONFIG QUIET OPTIONAL_COMPONENTS url)
find_package(CURL QUIET)
find_package(uriparser CONFIG QUIET)
find_package(Poco CONFIG QUIET COMPONENTS Foundation)
find_package(fmt CONFIG QUIET)

kt_add_peer(OPENSSL OpenSSL::Crypto)
kt_add_peer(ABSL absl::strings)
kt_add_peer(BOOST Boost::headers)
kt_add_peer(BOOST_URL Boost::url)
kt_add_peer(CURL CURL::libcurl)
kt_add_peer(URIPARSER uriparser::uriparser)
kt_add_peer(POCO Poco::Foundation)
kt_add_peer(FMT fmt::fmt)

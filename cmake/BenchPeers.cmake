# Which benchmark needs which peers, and how each peer is found. The Debian packages that hold them are listed in
# scripts/packages/bench. A family without a line measures against the standard library only.
set(NQCORE_PEERS_ucsutil simdjson icu)
set(NQCORE_PEERS_string_util absl_strings re2)
set(NQCORE_PEERS_string_to fmt)
set(NQCORE_PEERS_utc_text absl_time)
set(NQCORE_PEERS_abs_rel_time absl_time)
set(NQCORE_PEERS_simple_date_time absl_time)
set(NQCORE_PEERS_error_info absl_status)
set(NQCORE_PEERS_error_exception absl_status)
set(NQCORE_PEERS_refcounted boost)
set(NQCORE_PEERS_safe_cast boost)

# Peers that pkg-config knows; Boost's part is headers only and needs nothing.
set(peer_package_simdjson simdjson)
set(peer_package_icu icu-uc)
set(peer_package_fmt fmt)
set(peer_package_re2 re2)
set(peer_package_absl_strings absl_strings absl_str_format)
set(peer_package_absl_time absl_time absl_strings)
set(peer_package_absl_status absl_status absl_statusor absl_strings)

find_package(PkgConfig REQUIRED)

function(nq_link_peer target peer)
    if(peer STREQUAL "boost")
        find_path(BOOST_INCLUDE_DIR boost/version.hpp REQUIRED)
        return()
    endif()
    if(NOT TARGET PkgConfig::peer_${peer})
        pkg_check_modules(peer_${peer} REQUIRED IMPORTED_TARGET GLOBAL ${peer_package_${peer}})
    endif()
    target_link_libraries(${target} PRIVATE PkgConfig::peer_${peer})
endfunction()

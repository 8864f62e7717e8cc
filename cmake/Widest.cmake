# qrn_widest_sources(FILE... [FUSED]): compiles the given source files for AVX-512 (F, DQ, VL
# and BW) on x86-64, with fused multiply-add when FUSED is given and with every product and
# sum rounded on its own otherwise. Elsewhere the files are compiled like the rest; the
# library calls their rows only after qrn::simd::WidestVectors() has found the instructions.
function(qrn_widest_sources)
  cmake_parse_arguments(ARG "FUSED" "" "" ${ARGN})
  if(NOT CMAKE_SYSTEM_PROCESSOR MATCHES "^(x86_64|AMD64|amd64)$" OR NOT CMAKE_CXX_COMPILER_ID MATCHES "GNU|Clang")
    return()
  endif()
  set(options -mavx512f -mavx512dq -mavx512vl -mavx512bw -mavx2)
  if(ARG_FUSED)
    list(APPEND options -mfma)
  else()
    list(APPEND options -ffp-contract=off)
  endif()
  set_source_files_properties(${ARG_UNPARSED_ARGUMENTS} PROPERTIES COMPILE_OPTIONS "${options}")
endfunction()

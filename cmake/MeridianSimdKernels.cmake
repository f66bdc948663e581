# Kernels built once per vector width: a file named *_sse2.cpp, *_avx.cpp,
# *_avx2.cpp or *_avx512.cpp is compiled for that instruction set only, and
# the library picks the widest one the processor has at run time
# (src/simd/simd_level.h). The rest of the library stays baseline x86-64.
#
# No width may round differently from the scalar code: multiply-adds are
# never contracted into fused ones (GCC contracts by default in C++ whenever
# the target has FMA). On MinGW, GCC keeps the stack 16-byte aligned only
# but spills 32- and 64-byte vectors with aligned moves; the assembler turns
# those into unaligned moves there, so spills cannot fault.
function(meridian_simd_kernels target sources)
  if(NOT CMAKE_SYSTEM_PROCESSOR MATCHES "^(x86_64|AMD64|amd64|x64)$")
    return()
  endif()
  target_compile_definitions(${target} PRIVATE MERIDIAN_SIMD_X86=1)
  if(MSVC)
    set(flags_sse2 "")
    set(flags_avx "/arch:AVX")
    set(flags_avx2 "/arch:AVX2")
    set(flags_avx512 "/arch:AVX512")
    set(common "/fp:precise")
  else()
    set(flags_sse2 "-msse2")
    set(flags_avx "-mavx")
    set(flags_avx2 "-mavx2")
    set(flags_avx512 "-mavx512f")
    set(common "-ffp-contract=off")
    if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
      # GCC 12 reports the inputs the intrinsics leave undefined on purpose
      # (the unused lanes of gathers, square roots and maxima) as maybe
      # uninitialised.
      list(APPEND common "-Wno-maybe-uninitialized" "-Wno-uninitialized")
      if(MINGW)
        list(APPEND common "-Wa,-muse-unaligned-vector-move")
      endif()
    endif()
  endif()
  foreach(width sse2 avx avx2 avx512)
    set(files ${sources})
    list(FILTER files INCLUDE REGEX "_${width}\\.cpp$")
    if(files)
      set_source_files_properties(${files} TARGET_DIRECTORY ${target}
        PROPERTIES COMPILE_OPTIONS "${flags_${width}};${common}")
    endif()
  endforeach()
endfunction()

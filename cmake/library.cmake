# The product engine, which tests drive route by route.
add_library(modla_engine OBJECT
  ${PROJECT_SOURCE_DIR}/engine/avx2.cpp
  ${PROJECT_SOURCE_DIR}/engine/avx2_kernels.S
  ${PROJECT_SOURCE_DIR}/engine/avx512.cpp
  ${PROJECT_SOURCE_DIR}/engine/avx512_kernels.S
  ${PROJECT_SOURCE_DIR}/engine/avx512_slices.cpp
  ${PROJECT_SOURCE_DIR}/engine/gemm.cpp
  ${PROJECT_SOURCE_DIR}/engine/packing_memory.cpp
  ${PROJECT_SOURCE_DIR}/engine/processor.cpp
  ${PROJECT_SOURCE_DIR}/engine/row_operations.cpp
  ${PROJECT_SOURCE_DIR}/engine/rows_avx2.cpp
  ${PROJECT_SOURCE_DIR}/engine/rows_avx512.cpp)
# A file of one instruction set is entered only where the processor has it.  (GCC 12 takes the undefined vectors in its
# own headers for uninitialised ones.)
set_source_files_properties(${PROJECT_SOURCE_DIR}/engine/avx512_slices.cpp PROPERTIES COMPILE_OPTIONS
  "-mavx512f;-mavx512bw;-mavx512dq;-mavx512vl;-mavx512vnni;-mbmi2;-Wno-uninitialized;$<$<CONFIG:Release>:-O2>;$<$<CXX_COMPILER_ID:GNU>:-Wno-maybe-uninitialized>")
set_source_files_properties(${PROJECT_SOURCE_DIR}/engine/avx512.cpp PROPERTIES COMPILE_OPTIONS
  "-mavx512f;-mavx512bw;-mavx512dq;-mavx512vl;-mavx512vnni;-mavx512ifma;-mavx512vbmi;-mgfni;-mbmi2;-Wno-uninitialized;$<$<CONFIG:Release>:-O2>;$<$<CXX_COMPILER_ID:GNU>:-Wno-maybe-uninitialized>")
# (Clang 14 assembles displacements of vgf2p8affineqb with a broadcast wrongly: 8 becomes 64.)
set_source_files_properties(${PROJECT_SOURCE_DIR}/engine/avx512_kernels.S PROPERTIES COMPILE_OPTIONS
  "$<$<CXX_COMPILER_ID:Clang>:-fno-integrated-as>")
set_source_files_properties(${PROJECT_SOURCE_DIR}/engine/avx2.cpp PROPERTIES COMPILE_OPTIONS
  "-mavx2;-mfma;$<$<CONFIG:Release>:-O2>")
set_source_files_properties(${PROJECT_SOURCE_DIR}/engine/rows_avx2.cpp PROPERTIES COMPILE_OPTIONS "-mavx2;-mfma")
set_source_files_properties(${PROJECT_SOURCE_DIR}/engine/rows_avx512.cpp PROPERTIES COMPILE_OPTIONS
  "-mavx512f;-mavx512bw;-mavx512dq;-mavx512vl;-mavx512vnni;-mfma;-Wno-uninitialized;$<$<CXX_COMPILER_ID:GNU>:-Wno-maybe-uninitialized>")

# libmodla.so
add_library(modla SHARED
  ${PROJECT_SOURCE_DIR}/elimination/back_sub.cpp
  ${PROJECT_SOURCE_DIR}/elimination/blocked_lu.cpp
  ${PROJECT_SOURCE_DIR}/elimination/blocked_product.cpp
  ${PROJECT_SOURCE_DIR}/elimination/determinant.cpp
  ${PROJECT_SOURCE_DIR}/elimination/exports.cpp
  ${PROJECT_SOURCE_DIR}/elimination/for_sub.cpp
  ${PROJECT_SOURCE_DIR}/elimination/lu_decomp.cpp
  ${PROJECT_SOURCE_DIR}/elimination/mat_basis.cpp
  ${PROJECT_SOURCE_DIR}/elimination/mat_gcd.cpp
  ${PROJECT_SOURCE_DIR}/elimination/row_reduce.cpp
  ${PROJECT_SOURCE_DIR}/elimination/run_row_reduction.cpp
  ${PROJECT_SOURCE_DIR}/elimination/triangular_system.cpp
  ${PROJECT_SOURCE_DIR}/elimination/zigzag.cpp
  ${PROJECT_SOURCE_DIR}/engine/blas.cpp
  ${PROJECT_SOURCE_DIR}/host/arguments.cpp
  ${PROJECT_SOURCE_DIR}/host/datatype.cpp
  ${PROJECT_SOURCE_DIR}/host/flexinput.cpp
  ${PROJECT_SOURCE_DIR}/host/modulus.cpp
  ${PROJECT_SOURCE_DIR}/host/processor.S
  ${PROJECT_SOURCE_DIR}/host/register.cpp
  ${PROJECT_SOURCE_DIR}/host/rtable.cpp
  ${PROJECT_SOURCE_DIR}/host/selection.cpp
  ${PROJECT_SOURCE_DIR}/host/subspec.cpp
  ${PROJECT_SOURCE_DIR}/host/table.cpp
  ${PROJECT_SOURCE_DIR}/host/unknown.cpp
  ${PROJECT_SOURCE_DIR}/objects/copy.cpp
  ${PROJECT_SOURCE_DIR}/objects/create.cpp
  ${PROJECT_SOURCE_DIR}/objects/fill.cpp
  ${PROJECT_SOURCE_DIR}/objects/mod.cpp
  ${PROJECT_SOURCE_DIR}/objects/permute.cpp
  ${PROJECT_SOURCE_DIR}/objects/swap.cpp
  ${PROJECT_SOURCE_DIR}/objects/triangle.cpp
  ${PROJECT_SOURCE_DIR}/products/add_mult.cpp
  ${PROJECT_SOURCE_DIR}/products/blas_product.cpp
  ${PROJECT_SOURCE_DIR}/products/exports.cpp
  ${PROJECT_SOURCE_DIR}/products/general_product.cpp
  ${PROJECT_SOURCE_DIR}/products/multiply.cpp
  ${PROJECT_SOURCE_DIR}/products/strassen.cpp
  ${PROJECT_SOURCE_DIR}/values/evaluate.cpp
  ${PROJECT_SOURCE_DIR}/values/host_integer.cpp
  ${PROJECT_SOURCE_DIR}/residue/inverse.cpp
  ${PROJECT_SOURCE_DIR}/values/polynomial.cpp
  ${PROJECT_SOURCE_DIR}/residue/power.cpp
  ${PROJECT_SOURCE_DIR}/values/rand_fill.cpp)
# The classical loops that small products run in differ by a fifth with the place that the linker gives them.
set_source_files_properties(
  ${PROJECT_SOURCE_DIR}/products/add_mult.cpp ${PROJECT_SOURCE_DIR}/products/blas_product.cpp
  ${PROJECT_SOURCE_DIR}/products/exports.cpp ${PROJECT_SOURCE_DIR}/products/general_product.cpp
  ${PROJECT_SOURCE_DIR}/products/multiply.cpp ${PROJECT_SOURCE_DIR}/products/strassen.cpp
  PROPERTIES COMPILE_OPTIONS "$<$<CONFIG:Release>:-falign-functions=64;-falign-loops=64;-falign-jumps=32>")
set_target_properties(modla PROPERTIES SOVERSION 1 VERSION ${PROJECT_VERSION} CXX_VISIBILITY_PRESET hidden
  VISIBILITY_INLINES_HIDDEN ON LINK_DEPENDS ${PROJECT_SOURCE_DIR}/cmake/modla.map
  LIBRARY_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR})
target_include_directories(modla PUBLIC $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}/include>
  $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}> PRIVATE ${PROJECT_SOURCE_DIR})
target_link_libraries(modla PRIVATE modla_warnings modla_cblas modla_engine)
set_target_properties(modla_engine PROPERTIES CXX_VISIBILITY_PRESET hidden VISIBILITY_INLINES_HIDDEN ON)
target_include_directories(modla_engine PRIVATE ${PROJECT_SOURCE_DIR})
target_link_libraries(modla_engine PRIVATE modla_warnings)
foreach(target modla modla_engine)
  # A host may call with a stack aligned to 4 bytes, and hand out doubles aligned to 4.  Floating-point exceptions are
  # masked while residues are computed.  No loop is peeled towards an alignment that doubles here need not have.
  target_compile_options(${target} PRIVATE -fno-math-errno -fno-trapping-math -fasynchronous-unwind-tables
    -fstack-protector-strong
    $<$<CXX_COMPILER_ID:GNU>:-mincoming-stack-boundary=2 --param=vect-max-peeling-for-alignment=0>
    $<$<CXX_COMPILER_ID:Clang>:-mstackrealign>
    $<$<CONFIG:Release>:-O3 -U_FORTIFY_SOURCE -D_FORTIFY_SOURCE=2>)
endforeach()
# Its names bind to itself (-Bsymbolic), whatever the process holds under the same names.
target_link_options(modla PRIVATE -Wl,--version-script=${PROJECT_SOURCE_DIR}/cmake/modla.map -Wl,-Bsymbolic
  -Wl,-z,relro,-z,now,-z,noexecstack,-z,text -Wl,--as-needed
  $<$<NOT:$<BOOL:${MODLA_SANITIZE}>>:-Wl,--no-undefined -static-libgcc>)

# The installed tree as an integrator meets it: install into a fresh prefix, build a small C host
# through the CMake package and through pkg-config, run both, and run the installed tool, which
# must find the library beside it without any search path set.
set(prefix ${WORK_DIR}/install_tree)
file(REMOVE_RECURSE ${prefix})

function(step)
  execute_process(COMMAND ${ARGN} RESULT_VARIABLE rc OUTPUT_VARIABLE out ERROR_VARIABLE err)
  if(NOT rc EQUAL 0)
    message(FATAL_ERROR "${ARGN} failed (${rc}): ${out}${err}")
  endif()
  set(step_output "${out}" PARENT_SCOPE)
endfunction()

step(${CMAKE_COMMAND} --install ${BUILD_DIR} --prefix ${prefix}/usr)
step(${CMAKE_COMMAND} -E env --unset=LD_LIBRARY_PATH ${prefix}/usr/bin/velmora --version)
step(${CMAKE_COMMAND} -S ${SOURCE_DIR}/consumer -B ${prefix}/cmake-consumer -DCMAKE_PREFIX_PATH=${prefix}/usr
     -DCMAKE_BUILD_RPATH=${prefix}/usr/lib)
step(${CMAKE_COMMAND} --build ${prefix}/cmake-consumer)
step(${prefix}/cmake-consumer/consumer)
file(GLOB pc_dir ${prefix}/usr/lib*/pkgconfig ${prefix}/usr/lib/*/pkgconfig)
step(${CMAKE_COMMAND} -E env PKG_CONFIG_PATH=${pc_dir} pkg-config --define-prefix --cflags --libs velmora-imaging)
string(STRIP "${step_output}" flags)
separate_arguments(flags UNIX_COMMAND "${flags}")
list(FILTER flags INCLUDE REGEX "^-L")
string(REPLACE "-L" "" libdir "${flags}")
step(${CMAKE_COMMAND} -E env PKG_CONFIG_PATH=${pc_dir} sh -c
     "cc -std=c11 ${SOURCE_DIR}/consumer/main.c -o ${prefix}/pc-consumer $(pkg-config --define-prefix --cflags --libs velmora-imaging) -Wl,-rpath,${libdir}")
step(${prefix}/pc-consumer)

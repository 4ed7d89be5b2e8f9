# bench_flash: a full application-section update and verify against boardsim
# paced at 19200 baud, as a fraction of the wire limit.
add_executable(bench_flash "${CMAKE_CURRENT_LIST_DIR}/flash.cpp")
target_include_directories(bench_flash PRIVATE "${CMAKE_SOURCE_DIR}")
target_compile_options(bench_flash PRIVATE ${AVRTEST_WARNINGS})
target_compile_definitions(bench_flash PRIVATE BOARDSIM_PATH="$<TARGET_FILE:boardsim>")
target_link_libraries(bench_flash PRIVATE avrflash_core avrtest_benchkit)
add_dependencies(bench_flash boardsim)

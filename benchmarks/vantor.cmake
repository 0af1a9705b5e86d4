# bench_vantor runs the vantor tool and casync against nginx (tests/support's fixture).
if(TARGET test_servers)
    find_package(OpenSSL REQUIRED COMPONENTS Crypto)
    target_link_libraries(bench_vantor PRIVATE vantor test_servers OpenSSL::Crypto)
    target_compile_definitions(bench_vantor PRIVATE VANTOR_TOOL="$<TARGET_FILE:vantor_tool>")
    add_dependencies(bench_vantor vantor_tool)
else()
    set_target_properties(bench_vantor PROPERTIES EXCLUDE_FROM_ALL ON)
endif()

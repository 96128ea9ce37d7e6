# Stand-ins the command-line tests install in the prefix: the display vendor's
# plug-in and its service program at versions 4.9 and 5.0 (copied where a real
# installation puts them), and a push-notification service program.
set(testbed "${CMAKE_BINARY_DIR}/bin/testbed")
add_library(kestrel_portrait_panel_plugin MODULE windows/testbed/PortraitPanelPlugin.cpp windows/testbed/PortraitPanelPlugin.def)
set_target_properties(kestrel_portrait_panel_plugin PROPERTIES PREFIX "" OUTPUT_NAME TesselVNT LIBRARY_OUTPUT_DIRECTORY "${testbed}")
target_include_directories(kestrel_portrait_panel_plugin PRIVATE "${PROJECT_SOURCE_DIR}")
target_link_libraries(kestrel_portrait_panel_plugin PRIVATE kestrel_windows_api)
target_link_options(kestrel_portrait_panel_plugin PRIVATE -static)
kestrel_warnings(kestrel_portrait_panel_plugin)

# A component linked against KestrelTool.exe's own exports, built as a
# component of the product is: with the same toolchain, against the installed
# package (find_package(KestrelSecurity)). KestrelTool loads it in the
# plug-in's place.
add_test(NAME kestrel_security.package COMMAND "${CMAKE_CURRENT_SOURCE_DIR}/consumer/run-consumer" "${CMAKE_BINARY_DIR}"
    "${CMAKE_BINARY_DIR}/consumer" cp SecurityConsumer.dll "${testbed}/")
set_tests_properties(kestrel_security.package PROPERTIES FIXTURES_SETUP security_package)
set_property(TEST kestrel_cli_tests APPEND PROPERTY FIXTURES_REQUIRED security_package)

foreach(version 4.9 5.0)
    string(REPLACE "." ";" parts ${version})
    list(GET parts 0 major)
    list(GET parts 1 minor)
    set(target kestrel_vendor_service_${major}_${minor})
    add_executable(${target} windows/testbed/VendorService.cpp windows/testbed/VendorService.rc)
    set_target_properties(${target} PROPERTIES OUTPUT_NAME Vantor-${version} RUNTIME_OUTPUT_DIRECTORY "${testbed}")
    target_compile_definitions(${target} PRIVATE VENDOR_MAJOR=${major} VENDOR_MINOR=${minor})
    target_link_options(${target} PRIVATE -static)
    add_dependencies(kestrel_cli_tests ${target})
endforeach()

target_sources(kestrel_cli_tests PRIVATE windows/DisplayCliWineTest.cpp windows/VerifyCliWineTest.cpp)
add_dependencies(kestrel_cli_tests KestrelVerify)
add_dependencies(kestrel_cli_tests kestrel_portrait_panel_plugin)
set(cli_environment "KESTREL_TEST_BEDS=Z:${testbed}" "KESTREL_TRUST_MATERIAL=Z:${CMAKE_BINARY_DIR}/trust-material")
set_property(TEST kestrel_cli_tests APPEND PROPERTY ENVIRONMENT ${cli_environment})
set_property(TEST kestrel_cli_tests APPEND PROPERTY FIXTURES_REQUIRED trust_material)
if(KESTREL_LIBCXX_PROGRAMS)
    cmake_language(DEFER CALL set_property TEST kestrel_cli_tests.libcxx APPEND PROPERTY ENVIRONMENT ${cli_environment})
    cmake_language(DEFER CALL set_property TEST kestrel_cli_tests.libcxx APPEND PROPERTY FIXTURES_REQUIRED trust_material)
endif()

# The push-notification service stand-in, registered by the Notification tests.
add_executable(kestrel_push_notification_service windows/testbed/PushNotificationService.cpp)
set_target_properties(kestrel_push_notification_service PROPERTIES
    OUTPUT_NAME PushNotificationService RUNTIME_OUTPUT_DIRECTORY "${testbed}")
target_link_libraries(kestrel_push_notification_service PRIVATE kestrel_windows_api shell32)
target_link_options(kestrel_push_notification_service PRIVATE -static)
kestrel_warnings(kestrel_push_notification_service)
target_sources(kestrel_cli_tests PRIVATE windows/NotificationCliWineTest.cpp windows/ApplicationCliWineTest.cpp)
target_link_libraries(kestrel_cli_tests PRIVATE advapi32)
add_dependencies(kestrel_cli_tests kestrel_push_notification_service)

# The word processor's automation server, registered by the Application tests.
add_library(kestrel_word_automation_server MODULE windows/testbed/WordAutomationServer.cpp windows/testbed/WordAutomationServer.def)
set_target_properties(kestrel_word_automation_server PROPERTIES
    PREFIX "" OUTPUT_NAME WordAutomationServer LIBRARY_OUTPUT_DIRECTORY "${testbed}")
target_link_libraries(kestrel_word_automation_server PRIVATE kestrel_windows_api oleaut32)
target_link_options(kestrel_word_automation_server PRIVATE -static)
kestrel_warnings(kestrel_word_automation_server)
add_dependencies(kestrel_cli_tests kestrel_word_automation_server)


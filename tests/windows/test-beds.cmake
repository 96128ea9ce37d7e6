# Stand-ins the command-line tests install in the prefix: the display vendor's
# service program at version 5.0, copied where a real installation puts it,
# the push-notification service with its settings key, and the word
# processor's automation server.
set(testbed "${CMAKE_BINARY_DIR}/bin/testbed")

# A component linked against KestrelTool.exe's own exports, built as a
# component of the product is: with the same toolchain, against the installed
# package (find_package(KestrelSecurity)). KestrelTool loads it in the
# display vendor plug-in's place.
add_test(NAME kestrel_security.package COMMAND "${CMAKE_CURRENT_SOURCE_DIR}/consumer/run-consumer" "${CMAKE_BINARY_DIR}"
    "${CMAKE_BINARY_DIR}/consumer" cp SecurityConsumer.dll "${testbed}/")
set_tests_properties(kestrel_security.package PROPERTIES FIXTURES_SETUP security_package)
set_property(TEST kestrel_cli_tests APPEND PROPERTY FIXTURES_REQUIRED security_package)

add_executable(kestrel_vendor_service windows/testbed/VendorService.cpp windows/testbed/VendorService.rc)
set_target_properties(kestrel_vendor_service PROPERTIES OUTPUT_NAME Vantor-5.0 RUNTIME_OUTPUT_DIRECTORY "${testbed}")
target_compile_definitions(kestrel_vendor_service PRIVATE VENDOR_MAJOR=5 VENDOR_MINOR=0)
target_link_options(kestrel_vendor_service PRIVATE -static)
add_dependencies(kestrel_cli_tests kestrel_vendor_service)

target_sources(kestrel_cli_tests PRIVATE windows/DisplayCliWineTest.cpp)
add_dependencies(kestrel_cli_tests KestrelVerify)
set(cli_environment "KESTREL_TEST_BEDS=Z:${testbed}" "KESTREL_TRUST_MATERIAL=Z:${CMAKE_BINARY_DIR}/trust-material")
set_property(TEST kestrel_cli_tests APPEND PROPERTY ENVIRONMENT ${cli_environment})
set_property(TEST kestrel_cli_tests APPEND PROPERTY FIXTURES_REQUIRED trust_material)
if(KESTREL_LIBCXX_PROGRAMS)
    cmake_language(DEFER CALL set_property TEST kestrel_cli_tests.libcxx APPEND PROPERTY ENVIRONMENT ${cli_environment})
    cmake_language(DEFER CALL set_property TEST kestrel_cli_tests.libcxx APPEND PROPERTY FIXTURES_REQUIRED trust_material)
endif()

# The per-user push-notification service (its name carries a suffix), stopped
# until a test restarts it, and its settings key with notifications on.
add_executable(kestrel_push_notification_service windows/testbed/PushNotificationService.cpp)
set_target_properties(kestrel_push_notification_service PROPERTIES
    OUTPUT_NAME PushNotificationService RUNTIME_OUTPUT_DIRECTORY "${testbed}")
target_link_options(kestrel_push_notification_service PRIVATE -static)
kestrel_warnings(kestrel_push_notification_service)
add_dependencies(kestrel_cli_tests kestrel_push_notification_service)
string(REPLACE "/" "\\" push_service_exe "Z:${testbed}/PushNotificationService.exe")
kestrel_wine_test(test_beds.notification COMMAND sh -c
    "wine reg add 'HKCU\\Software\\Microsoft\\Windows\\CurrentVersion\\PushNotifications' /v ToastEnabled /t REG_DWORD /d 1 /f \
     && wine sc create WpnUserService_5b7c3 binPath= \"$0\" DisplayName= 'Windows Push Notifications User Service_5b7c3' \
     && ${wine_settle}" "${push_service_exe}"
    REQUIRED_FILES "${testbed}/PushNotificationService.exe")
set_tests_properties(test_beds.notification PROPERTIES FIXTURES_SETUP test_beds)
set_property(TEST kestrel_cli_tests APPEND PROPERTY FIXTURES_REQUIRED test_beds)
if(KESTREL_LIBCXX_PROGRAMS)
    cmake_language(DEFER CALL set_property TEST kestrel_cli_tests.libcxx APPEND PROPERTY FIXTURES_REQUIRED test_beds)
endif()

# The word processor's automation server, in process, as Word.Application.
add_library(kestrel_word_automation_server MODULE windows/testbed/WordAutomationServer.cpp windows/testbed/WordAutomationServer.def)
set_target_properties(kestrel_word_automation_server PROPERTIES
    PREFIX "" OUTPUT_NAME WordAutomationServer LIBRARY_OUTPUT_DIRECTORY "${testbed}")
target_link_libraries(kestrel_word_automation_server PRIVATE oleaut32 uuid)
target_link_options(kestrel_word_automation_server PRIVATE -static)
kestrel_warnings(kestrel_word_automation_server)
add_dependencies(kestrel_cli_tests kestrel_word_automation_server)
string(REPLACE "/" "\\" word_server_dll "Z:${testbed}/WordAutomationServer.dll")
set(word_class "{5B7E6D0C-94A1-4C3E-8F2B-6A1D0E9C7B31}")
kestrel_wine_test(test_beds.word_processor COMMAND sh -c
    "wine reg add 'HKCR\\Word.Application\\CLSID' /ve /d '${word_class}' /f \
     && wine reg add 'HKCR\\CLSID\\${word_class}\\InprocServer32' /ve /d \"$0\" /f \
     && wine reg add 'HKCR\\CLSID\\${word_class}\\InprocServer32' /v ThreadingModel /t REG_SZ /d Both /f \
     && ${wine_settle}" "${word_server_dll}"
    REQUIRED_FILES "${testbed}/WordAutomationServer.dll")
set_tests_properties(test_beds.word_processor PROPERTIES FIXTURES_SETUP test_beds)

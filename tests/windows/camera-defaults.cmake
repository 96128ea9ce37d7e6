# The camera configuration manager the camera defaults tests run against: an
# in-process COM server registered in the prefix for the platform's CLSID.
add_library(kestrel_camera_configuration_server MODULE
    windows/testbed/CameraConfigurationServer.cpp
    windows/testbed/CameraConfigurationServer.def)
set_target_properties(kestrel_camera_configuration_server PROPERTIES
    PREFIX "" OUTPUT_NAME KestrelCameraConfigurationServer
    LIBRARY_OUTPUT_DIRECTORY "${CMAKE_BINARY_DIR}/bin")
target_include_directories(kestrel_camera_configuration_server PRIVATE "${PROJECT_SOURCE_DIR}")
target_link_libraries(kestrel_camera_configuration_server PRIVATE kestrel_windows_api uuid)
# No runtime DLLs for Wine to find beside it.
target_link_options(kestrel_camera_configuration_server PRIVATE -static)
kestrel_warnings(kestrel_camera_configuration_server)

# Wine's drive Z: is the Linux root.
string(REPLACE "/" "\\" camera_server_dll "Z:${CMAKE_BINARY_DIR}/bin/KestrelCameraConfigurationServer.dll")
set(camera_server_key "HKCR\\CLSID\\{6C92B540-5854-4A17-92B6-AC89C96E9683}\\InprocServer32")
kestrel_wine_test(camera_defaults.register COMMAND sh -c
    "wine reg add \"$0\" /ve /d \"$1\" /f && wine reg add \"$0\" /v ThreadingModel /t REG_SZ /d Both /f && ${wine_settle}"
    "${camera_server_key}" "${camera_server_dll}"
    REQUIRED_FILES "${CMAKE_BINARY_DIR}/bin/KestrelCameraConfigurationServer.dll")
set_tests_properties(camera_defaults.register PROPERTIES FIXTURES_SETUP camera_defaults_server)

target_sources(kestrel_unit_tests PRIVATE
    windows/CameraDeclarationsTest.cpp
    windows/CameraDefaultsWineTest.cpp)
target_link_libraries(kestrel_unit_tests PRIVATE ole32)
add_dependencies(kestrel_unit_tests kestrel_camera_configuration_server)
set_property(TEST kestrel_unit_tests APPEND PROPERTY FIXTURES_REQUIRED camera_defaults_server)

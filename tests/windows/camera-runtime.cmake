# Stand-ins for the capture classes the camera runtime activates, registered in
# the prefix for their Windows Runtime class names.
add_library(kestrel_capture_factories MODULE
    windows/testbed/CaptureFactories.cpp
    windows/testbed/CaptureFactories.def)
set_target_properties(kestrel_capture_factories PROPERTIES
    PREFIX "" OUTPUT_NAME KestrelCaptureFactories
    LIBRARY_OUTPUT_DIRECTORY "${CMAKE_BINARY_DIR}/bin")
target_include_directories(kestrel_capture_factories PRIVATE "${PROJECT_SOURCE_DIR}")
target_link_libraries(kestrel_capture_factories PRIVATE kestrel_windows_api ole32
    $<IF:$<CXX_COMPILER_ID:GNU>,runtimeobject,api-ms-win-core-winrt-string-l1-1-0>)
target_link_options(kestrel_capture_factories PRIVATE -static)
kestrel_warnings(kestrel_capture_factories)

set(capture_factories_file "${CMAKE_BINARY_DIR}/bin/KestrelCaptureFactories.dll")
string(REPLACE "/" "\\" capture_factories_dll "Z:${capture_factories_file}")
set(capture_class_keys "")
foreach(class Windows.Devices.Enumeration.DeviceInformation Windows.Media.Capture.MediaCapture
              Windows.Media.Capture.MediaCaptureInitializationSettings)
    list(APPEND capture_class_keys "HKLM\\Software\\Microsoft\\WindowsRuntime\\ActivatableClassId\\${class}")
endforeach()
kestrel_wine_test(camera_runtime.register COMMAND sh -c
    "for key in \"$@\"; do wine reg add \"$key\" /v DllPath /t REG_SZ /d \"$0\" /f || exit 1; done; ${wine_settle}"
    "${capture_factories_dll}" ${capture_class_keys}
    REQUIRED_FILES "${capture_factories_file}")
set_tests_properties(camera_runtime.register PROPERTIES FIXTURES_SETUP capture_factories)

target_sources(kestrel_unit_tests PRIVATE windows/CameraRuntimeWineTest.cpp)
add_dependencies(kestrel_unit_tests kestrel_capture_factories)
set_property(TEST kestrel_unit_tests APPEND PROPERTY FIXTURES_REQUIRED capture_factories)

# KestrelTool's Camera category needs the configuration manager as well.
target_sources(kestrel_cli_tests PRIVATE windows/CameraCliWineTest.cpp)
add_dependencies(kestrel_cli_tests kestrel_capture_factories kestrel_camera_configuration_server)
set_property(TEST kestrel_cli_tests APPEND PROPERTY FIXTURES_REQUIRED capture_factories camera_defaults_server)
if(KESTREL_LIBCXX_PROGRAMS)
    # That run is registered after this file.
    cmake_language(DEFER CALL set_property TEST kestrel_cli_tests.libcxx APPEND PROPERTY
                   FIXTURES_REQUIRED capture_factories camera_defaults_server)
endif()

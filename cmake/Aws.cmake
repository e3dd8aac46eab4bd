# kelvo_aws: the AWS SDK for C++ with S3 and transfers, or compat/aws, which stands in for it on
# libcurl. KELVO_AWS=sdk and =compat insist on one of them.
set(KELVO_AWS auto CACHE STRING "Where the S3 client comes from: sdk, compat or auto")
set_property(CACHE KELVO_AWS PROPERTY STRINGS auto sdk compat)

if(NOT KELVO_AWS MATCHES "^(auto|sdk|compat)$")
  message(FATAL_ERROR "KELVO_AWS must be sdk, compat or auto")
endif()
if(KELVO_AWS STREQUAL "sdk")
  find_package(AWSSDK REQUIRED COMPONENTS s3 transfer)
elseif(KELVO_AWS STREQUAL "auto")
  find_package(AWSSDK QUIET COMPONENTS s3 transfer)
endif()

if(AWSSDK_FOUND)
  message(STATUS "S3 client: AWS SDK for C++ ${AWSSDK_VERSION}")
  add_library(kelvo_aws INTERFACE)
  target_link_libraries(kelvo_aws INTERFACE aws-cpp-sdk-transfer aws-cpp-sdk-s3 aws-cpp-sdk-core)
else()
  # 7.85 and later sign requests and take protocols by name.
  find_package(CURL 7.85 REQUIRED)
  message(STATUS "S3 client: compat/aws on libcurl ${CURL_VERSION_STRING}")
  file(GLOB aws_sources CONFIGURE_DEPENDS ${CMAKE_SOURCE_DIR}/compat/aws/source/*.cpp)
  add_library(kelvo_aws STATIC ${aws_sources})
  target_include_directories(kelvo_aws PUBLIC ${CMAKE_SOURCE_DIR}/compat/aws/include
    PRIVATE ${CMAKE_SOURCE_DIR}/compat/aws/source)
  target_link_libraries(kelvo_aws PRIVATE kelvo_options kelvo_tinyxml
    CURL::libcurl Boost::filesystem Threads::Threads)
  # curl's header brings in Windows' own, which would rename GetObject and others.
  target_compile_definitions(kelvo_aws PRIVATE NOGDI NOMINMAX)
endif()

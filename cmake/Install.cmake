# What `cmake --install` lays down: the libraries, the public headers and a package file for
# find_package(Mirel).

include(CMakePackageConfigHelpers)

install(TARGETS MirelFramework MirelServiceExecution MirelValues MirelRuntime MirelChannels
  MirelTransports
  EXPORT MirelTargets)
install(DIRECTORY include/ DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/mirel)
install(DIRECTORY framework DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/mirel)

# install_headers(FOLDER HEADER...)
function(install_headers folder)
  list(TRANSFORM ARGN REPLACE "(.+)" "${folder}/\\1.h")
  install(FILES ${ARGN} DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/mirel/${folder})
endfunction()
install_headers(runtime/values Answer AnswerSink AnsweringChannel BusinessFailure ClaimingInvoker
  HandlerInvoker InterceptorList MessageRules ServiceContext)
install_headers(runtime/threads Mutex ThreadOptions ThreadStartHook)
install_headers(runtime/reports LogControl ReportLog Reports)
install_headers(channels Caller ChannelCounters FlowLimit LimitedPool RefusalCounter ServiceChannel)
install_headers(channels/open AllTransports Transport TransportOption Transports)
install_headers(channels/queue MessageQueue QueueChannel)
if(MIREL_ZEROMQ)
  install_headers(channels/zmq ZmqCaller ZmqChannel ZmqChannelOptions ZmqDeclaration ZmqSecurity
    ZmqTransport)
endif()
if(MIREL_NATS)
  install(TARGETS MirelNats EXPORT MirelTargets)
  install_headers(channels/nats NatsDeclaration NatsTransport)
  install_headers(channels/nats/wire NatsConnectionOptions NatsHandles NatsStream)
  install_headers(channels/nats/publish NatsAnswerOrder NatsCaller NatsCallerOptions)
  install_headers(channels/nats/read NatsChannel NatsChannelOptions)
endif()
if(TARGET mirel-host)
  install(TARGETS mirel-host mirel-call)
endif()
if(MIREL_SIMULATED)
  install(TARGETS MirelSimulated MirelInSteps EXPORT MirelTargets)
  install(FILES simulated/Exploration.h simulated/Simulation.h simulated/SimulatedChannel.h
    simulated/SimulatedHost.h DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/mirel/simulated)
endif()

set(package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/Mirel)
install(EXPORT MirelTargets NAMESPACE Mirel:: DESTINATION ${package_dir})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/MirelConfigVersion.cmake
  COMPATIBILITY SameMajorVersion)
file(CONFIGURE OUTPUT ${PROJECT_BINARY_DIR}/MirelConfig.cmake CONTENT
"include(CMakeFindDependencyMacro)
find_dependency(Threads)
include(\${CMAKE_CURRENT_LIST_DIR}/MirelTargets.cmake)
" @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/MirelConfig.cmake ${PROJECT_BINARY_DIR}/MirelConfigVersion.cmake
  DESTINATION ${package_dir})

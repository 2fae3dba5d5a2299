# What `cmake --install` lays down: the libraries, the public headers and a package file for
# find_package(Mirel).

include(CMakePackageConfigHelpers)

install(TARGETS MirelFramework MirelServiceExecution MirelStandalone EXPORT MirelTargets)
install(DIRECTORY include/ DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/mirel)
install(DIRECTORY framework DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/mirel)
set(public_standalone Answer AnswerSink Caller ChannelCounters HandlerInvoker InterceptorList LogControl MessageQueue
  MessageRules QueueChannel RefusalCounter Reports StandaloneContext ThreadOptions ThreadStartHook)
if(MIREL_ZEROMQ)
  list(APPEND public_standalone ZmqCaller ZmqChannel ZmqChannelOptions ZmqSecurity)
endif()
list(TRANSFORM public_standalone REPLACE "(.+)" "standalone/\\1.h")
install(FILES ${public_standalone} DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/mirel/standalone)
if(MIREL_ZEROMQ)
  install(TARGETS mirel-host mirel-call)
endif()
if(MIREL_NATS)
  install(TARGETS MirelNats EXPORT MirelTargets)
  install(FILES nats/NatsAnswerOrder.h nats/NatsCaller.h nats/NatsCallerOptions.h nats/NatsChannel.h
    nats/NatsChannelOptions.h nats/NatsConnectionOptions.h nats/NatsHandles.h nats/NatsStream.h DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/mirel/nats)
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

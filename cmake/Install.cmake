# One shared library of all components, its public headers, its package files, and the tool.

include(CMakePackageConfigHelpers)

get_property(components GLOBAL PROPERTY BRENLOFT_COMPONENTS)
get_property(dependencies GLOBAL PROPERTY BRENLOFT_DEPENDENCIES)
# The simulated platform is part of the library: applications test themselves with it.
set(objects)
foreach(component IN LISTS components)
  list(APPEND objects $<TARGET_OBJECTS:${component}>)
endforeach()
add_library(BrenloftSDK SHARED ${objects})
target_link_libraries(BrenloftSDK PRIVATE ${dependencies} Threads::Threads)
target_compile_features(BrenloftSDK INTERFACE cxx_std_20)
set_target_properties(BrenloftSDK PROPERTIES
  VERSION ${PROJECT_VERSION} SOVERSION ${PROJECT_VERSION_MAJOR}
  LINK_DEPENDS ${PROJECT_SOURCE_DIR}/cmake/BrenloftSDK.map)
# Standard-library templates that a public header instantiates stay out of the interface.
target_link_options(BrenloftSDK PRIVATE
  -Wl,--version-script=${PROJECT_SOURCE_DIR}/cmake/BrenloftSDK.map -Wl,--as-needed)
if(NOT BRENLOFT_SANITIZE)
  target_link_options(BrenloftSDK PRIVATE -Wl,--no-undefined)
endif()
install(TARGETS BrenloftSDK EXPORT BrenloftSDKTargets LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR})

# What applications include, and nothing that only the sources do.
set(public_headers
  BrenloftSDK/BRLContextManager.h BrenloftSDK/BRLContextManagerDelegate.h BrenloftSDK/BRLCoreDataManager.h
  BrenloftSDK/BRLDataManager.h BrenloftSDK/BRLDataModel.h BrenloftSDK/BRLGrowingList.h
  BrenloftSDK/BRLRecordList.h BrenloftSDK/BRLSensorFrame.h BrenloftSDK/BRLTimer.h
  BrenloftSDK/BRLUserDataModel.h BrenloftSDK/BrenloftSDK_vers.h
  BrenloftSDK/SensorLog+CoreDataProperties.h BrenloftSDK/SensorLog.h BrenloftSDK/SensorLogReader.h
  platform/NativePlatform.h platform/Platform.h
  platform/bluetooth/AdvertisingReport.h platform/bluetooth/CBCentralManager.h
  platform/bluetooth/CBManagerState.h platform/bluetooth/CBUUID.h
  platform/bluetooth/RadioService.h
  platform/coredata/NSEntityDescription.h platform/coredata/NSFetchRequest.h
  platform/coredata/NSInvalidArgumentException.h
  platform/coredata/NSManagedObject.h platform/coredata/NSManagedObjectContext.h
  platform/coredata/NSManagedObjectModel.h platform/coredata/NSPersistentStoreCoordinator.h
  platform/coredata/NSPredicate.h platform/coredata/StoredValue.h
  platform/dispatch/Block.h platform/dispatch/Dispatch.h platform/dispatch/RealTimeDispatch.h
  platform/dispatch/RunLoop.h platform/dispatch/VirtualDispatch.h
  platform/foundation/Data.h platform/foundation/Date.h platform/foundation/Error.h platform/foundation/Export.h
  platform/foundation/FolderAccess.h platform/foundation/Hex.h platform/foundation/Mutex.h
  platform/foundation/NSBundle.h platform/foundation/NSFileManager.h
  platform/foundation/NSLog.h platform/foundation/NSUUID.h platform/foundation/NSUserDefaults.h
  platform/foundation/TextArgument.h
  platform/foundation/Value.h
  platform/location/BeaconLocationService.h platform/location/CLLocationManager.h
  platform/location/iBeaconFrame.h
  platform/simulated/BeaconWorld.h platform/simulated/RecordingLog.h platform/simulated/ScriptedBluetooth.h
  platform/simulated/ScriptedLocationService.h platform/simulated/SimulatedAdvertisement.h
  platform/simulated/SimulatedPlatform.h platform/simulated/SimulatedRadio.h
  platform/simulated/SimulatedWorldSource.h
  platform/sources/Recording.h platform/sources/Source.h platform/sources/SourceInventory.h)
# Their own folder keeps the general name `platform` out of the way of other packages.
set(header_folder ${CMAKE_INSTALL_INCLUDEDIR}/BrenloftSDK-${PROJECT_VERSION_MAJOR})
foreach(header IN LISTS public_headers)
  get_filename_component(folder ${header} DIRECTORY)
  install(FILES ${PROJECT_SOURCE_DIR}/${header} DESTINATION ${header_folder}/${folder})
endforeach()
# Each found by its name alone
install(FILES application/c/brenloft.h application/cpp/brenloft.hpp DESTINATION ${header_folder})
target_include_directories(BrenloftSDK INTERFACE $<INSTALL_INTERFACE:${header_folder}>)

# find_package(BrenloftSDK)
set(package_folder ${CMAKE_INSTALL_LIBDIR}/cmake/BrenloftSDK)
install(EXPORT BrenloftSDKTargets NAMESPACE BrenloftSDK:: DESTINATION ${package_folder})
configure_package_config_file(${CMAKE_CURRENT_LIST_DIR}/BrenloftSDKConfig.cmake.in
  ${PROJECT_BINARY_DIR}/BrenloftSDKConfig.cmake INSTALL_DESTINATION ${package_folder})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/BrenloftSDKConfigVersion.cmake
  COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/BrenloftSDKConfig.cmake ${PROJECT_BINARY_DIR}/BrenloftSDKConfigVersion.cmake
  DESTINATION ${package_folder})

# pkg-config brenloftsdk: says where it lies from its own place, so that cmake --install may choose another prefix
file(RELATIVE_PATH prefix_from_pkgconfig
  ${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig ${CMAKE_INSTALL_PREFIX})
configure_file(${CMAKE_CURRENT_LIST_DIR}/brenloftsdk.pc.in ${PROJECT_BINARY_DIR}/brenloftsdk.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/brenloftsdk.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)

install(TARGETS brenloft RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
include(${CMAKE_CURRENT_LIST_DIR}/InstallPages.cmake)
install(FILES packaging/completion/brenloft.bash DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions
  RENAME brenloft)
install(FILES packaging/completion/_brenloft DESTINATION ${CMAKE_INSTALL_DATADIR}/zsh/site-functions)
install(FILES packaging/completion/brenloft.fish DESTINATION ${CMAKE_INSTALL_DATADIR}/fish/vendor_completions.d)
# As here, so that their links hold. README.md and CONTRIBUTING.md are of who has the sources.
install(DIRECTORY docs examples DESTINATION ${CMAKE_INSTALL_DOCDIR})
install(FILES CHANGELOG.md DESTINATION ${CMAKE_INSTALL_DOCDIR})
install(FILES packaging/brenloft.toml DESTINATION ${CMAKE_INSTALL_DOCDIR}/packaging)
# The service, for the prefix of cmake --install
install(CODE "set(source \"${PROJECT_SOURCE_DIR}\")\nset(bindir \"${CMAKE_INSTALL_BINDIR}\")")
install(SCRIPT ${CMAKE_CURRENT_LIST_DIR}/InstallService.cmake)

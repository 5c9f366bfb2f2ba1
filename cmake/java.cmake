# The Java development kit: its headers make the bridge, its compiler the bridge's Java side. Either word size uses the same one.

file(GLOB found_jdks LIST_DIRECTORIES true /usr/lib/jvm/java-17-openjdk-*)
set(found_jdk "")
foreach(directory $ENV{JAVA_HOME} ${found_jdks})
  if(NOT found_jdk AND EXISTS "${directory}/include/jni.h")
    set(found_jdk "${directory}")
  endif()
endforeach()
set(PLOV_JDK "${found_jdk}" CACHE PATH "the Java development kit")
if(NOT EXISTS "${PLOV_JDK}/include/jni.h" OR NOT EXISTS "${PLOV_JDK}/bin/javac")
  message(FATAL_ERROR "no Java development kit in PLOV_JDK \"${PLOV_JDK}\": scripts/prepare build installs one")
endif()

# plov_java(TARGET JAR DIRECTORY [CLASS_PATH]): compiles the Java sources below DIRECTORY into JAR in the build directory.
function(plov_java target jar directory)
  file(GLOB_RECURSE sources CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/${directory}/*.java)
  set(classes ${CMAKE_BINARY_DIR}/${target}.dir)
  if(ARGN)
    set(class_path -classpath ${ARGN})
  endif()
  add_custom_command(OUTPUT ${CMAKE_BINARY_DIR}/${jar} DEPENDS ${sources} ${ARGN} VERBATIM
    COMMAND ${CMAKE_COMMAND} -E rm -rf ${classes}
    COMMAND ${PLOV_JDK}/bin/javac --release 11 -encoding UTF-8 -Xlint:all -Werror ${class_path} -d ${classes} ${sources}
    COMMAND ${PLOV_JDK}/bin/jar --create --file ${CMAKE_BINARY_DIR}/${jar} -C ${classes} .)
  add_custom_target(${target} ALL DEPENDS ${CMAKE_BINARY_DIR}/${jar})
endfunction()

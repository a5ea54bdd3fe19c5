# Writes the version of what is built, project's and commit's, for the package (version.txt) and as a note into the
# programs.  Run at every build; what has not changed is not written.
#
#   cmake -D SOURCE=... -D FOLDER=... -D VERSION=... -P version.cmake

function(git result)
    execute_process(COMMAND git -C "${SOURCE}" ${ARGN} OUTPUT_VARIABLE output ERROR_QUIET
                    OUTPUT_STRIP_TRAILING_WHITESPACE)
    set(${result} "${output}" PARENT_SCOPE)
endfunction()

# A checkout without its history, or without git, has the project's version alone.
git(top rev-parse --show-toplevel)
if(top STREQUAL SOURCE)
    git(number rev-list --count HEAD)
    git(commit rev-parse --short=10 HEAD)
    git(changes status --porcelain --untracked-files=no)
    string(APPEND VERSION "+${number}.g${commit}")
    if(changes)
        string(APPEND VERSION ".modified")
    endif()
endif()
string(LENGTH "plinta-capture ${VERSION}" LENGTH)
math(EXPR LENGTH "${LENGTH} + 1")
configure_file("${CMAKE_CURRENT_LIST_DIR}/BuildNote.cpp.in" "${FOLDER}/BuildNote.cpp" @ONLY)
file(CONFIGURE OUTPUT "${FOLDER}/version.txt" CONTENT "${VERSION}\n")

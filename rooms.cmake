# Include paths by rooms.txt: what a room's files may not include they cannot even see. A room's
# view is a folder of links to the headers that it may include.

set(VANTRELLE_ROOMS ${PROJECT_SOURCE_DIR}/rooms.txt)
set(VANTRELLE_VIEWS ${PROJECT_BINARY_DIR}/views)
set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${VANTRELLE_ROOMS})
file(REMOVE_RECURSE ${VANTRELLE_VIEWS}) # also what the table allowed before

# vantrelle_view(RESULT NAME [FOLDER...]): the view with this line of the table and these folders.
function(vantrelle_view result name)
    file(STRINGS ${VANTRELLE_ROOMS} row REGEX "^${name}:")
    string(REGEX REPLACE "^[^:]*:" "" folders "${row}")
    separate_arguments(folders)
    string(MAKE_C_IDENTIFIER ${name} view)
    set(view ${VANTRELLE_VIEWS}/${view})
    foreach(folder ${folders} ${ARGN})
        file(MAKE_DIRECTORY ${view}/${folder})
        file(GLOB headers CONFIGURE_DEPENDS RELATIVE ${PROJECT_SOURCE_DIR}
            ${PROJECT_SOURCE_DIR}/${folder}/*.h)
        foreach(header ${headers})
            file(CREATE_LINK ${PROJECT_SOURCE_DIR}/${header} ${view}/${header} SYMBOLIC)
        endforeach()
    endforeach()
    set(${result} ${view} PARENT_SCOPE)
endfunction()

# vantrelle_room(TARGET...): the targets made of this folder's sources see what the table says; a
# source file with a line of its own sees that too.
function(vantrelle_room)
    file(RELATIVE_PATH room ${PROJECT_SOURCE_DIR} ${CMAKE_CURRENT_SOURCE_DIR})
    vantrelle_view(view ${room} ${room})
    foreach(target ${ARGN})
        target_include_directories(${target} PRIVATE ${view})
    endforeach()
    file(STRINGS ${VANTRELLE_ROOMS} rows REGEX "^${room}/[a-z_]+\\.cpp:")
    foreach(row ${rows})
        string(REGEX REPLACE ":.*" "" file ${row})
        vantrelle_view(view ${file})
        set_source_files_properties(${PROJECT_SOURCE_DIR}/${file} PROPERTIES
            INCLUDE_DIRECTORIES ${view})
    endforeach()
endfunction()

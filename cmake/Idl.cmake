# add_idl(NAME FILE): the library NAME has the C++ header and the interface identifiers of an IDL file. Its property
# TYPE_LIBRARY is the path of the type library, for a resource script.

find_program(WIDL NAMES i686-w64-mingw32-widl widl REQUIRED)

# oaidl.idl and stdole2.tlb are part of Wine on Linux, and of the compiler elsewhere.
set(VORNA_IDL_INCLUDE "/usr/include/wine/wine/windows" CACHE PATH "folder of oaidl.idl and ocidl.idl")
set(VORNA_TLB_FOLDER "/usr/lib/i386-linux-gnu/wine/i386-windows" CACHE PATH "folder of stdole2.tlb")

function(add_idl name file)
    set(folder ${CMAKE_CURRENT_BINARY_DIR}/generated)
    file(MAKE_DIRECTORY ${folder})
    get_filename_component(source ${file} ABSOLUTE)
    get_filename_component(stem ${file} NAME_WE)
    set(flags --win32 -I ${VORNA_IDL_INCLUDE} -L ${VORNA_TLB_FOLDER})
    add_custom_command(
        OUTPUT ${folder}/${stem}.h ${folder}/${stem}_i.c ${folder}/${stem}.tlb
        COMMAND ${WIDL} ${flags} -h -o ${folder}/${stem}.h ${source}
        COMMAND ${WIDL} ${flags} -u -o ${folder}/${stem}_i.c ${source}
        COMMAND ${WIDL} ${flags} -t -o ${folder}/${stem}.tlb ${source}
        DEPENDS ${source}
        COMMENT "IDL ${file}"
        VERBATIM)
    add_library(${name} STATIC ${folder}/${stem}_i.c ${folder}/${stem}.h)
    target_include_directories(${name} SYSTEM PUBLIC ${folder})
    set_target_properties(${name} PROPERTIES TYPE_LIBRARY ${folder}/${stem}.tlb)
endfunction()

# Writes the files given after "--" into one C++ source file, which defines pageFiles(). Each is held
# as it is and compressed.
# usage: cmake -D OUTPUT=FILE -P EmbedPage.cmake -- FILE...

# The file compressed, as the characters of a C++ array. A gzip header holds the time of compression
# in its bytes 4 to 7; zeros make every build the same.
function(compress file result)
    set(zipped "${OUTPUT}.gz")
    file(ARCHIVE_CREATE OUTPUT "${zipped}" PATHS "${file}" FORMAT raw COMPRESSION GZip
         COMPRESSION_LEVEL 9)
    file(READ "${zipped}" bytes HEX)
    file(REMOVE "${zipped}")
    string(SUBSTRING "${bytes}" 0 8 magic)
    string(SUBSTRING "${bytes}" 16 -1 rest)
    string(REGEX REPLACE "(..)" "'\\\\x\\1'," characters "${magic}00000000${rest}")
    set(${result} "${characters}" PARENT_SCOPE)
endfunction()

set(arrays "")
set(rows "")
set(isFile FALSE)
math(EXPR last "${CMAKE_ARGC} - 1")
foreach(index RANGE ${last})
    set(file "${CMAKE_ARGV${index}}")
    if(isFile)
        get_filename_component(name "${file}" NAME)
        file(READ "${file}" text)
        compress("${file}" zipped)
        string(APPEND arrays "constexpr char zipped${index}[] = {${zipped}};\n")
        string(APPEND rows "        {\"${name}\", R\"kivo-page(${text})kivo-page\",\n"
                           "         {zipped${index}, sizeof zipped${index}}},\n")
    elseif(file STREQUAL "--")
        set(isFile TRUE)
    endif()
endforeach()
file(WRITE "${OUTPUT}" "#include \"backend/admin/PageFiles.h\"

namespace kivo::backend {

namespace {

${arrays}
}  // namespace

std::span<const PageFile> pageFiles() {
    static constexpr PageFile files[] = {
${rows}    };
    return files;
}

}  // namespace kivo::backend
")

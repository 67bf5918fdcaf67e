# SPDX-FileCopyrightText: VQD_API contributors
# SPDX-License-Identifier: Apache-2.0
#
# Makes the page a part of the program: cmake -DFOLDER=... -DOUTPUT=page_files.cpp -P embed.cmake
set(type_.html "text/html; charset=utf-8")
set(type_.js "text/javascript; charset=utf-8")
set(type_.css "text/css; charset=utf-8")
set(type_.svg "image/svg+xml")

file(GLOB names RELATIVE ${FOLDER} ${FOLDER}/*.html ${FOLDER}/*.js ${FOLDER}/*.css ${FOLDER}/*.svg)
set(rows)
foreach(name IN LISTS names)
  file(SIZE ${FOLDER}/${name} size)
  file(READ ${FOLDER}/${name} bytes HEX)
  string(REGEX REPLACE "(..)" "\\\\x\\1" bytes "${bytes}")
  get_filename_component(extension ${name} LAST_EXT)
  string(REPLACE "/app/index.html" "/" path /app/${name})
  string(APPEND rows "    {\"${path}\", \"${type_${extension}}\", {\"${bytes}\", ${size}}},\n")
endforeach()
file(WRITE ${OUTPUT} "// Made by embed.cmake.
#include \"serve/page_files.h\"

static constexpr PageFile kFiles[] = {\n${rows}};

std::span<const PageFile> pageFiles()
{
    return kFiles;
}
")

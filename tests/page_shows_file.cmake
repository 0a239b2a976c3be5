# A page of documentation shows a source file as it stands:
#   cmake -DPAGE=... -DFILE=... -P page_shows_file.cmake
file(READ ${PAGE} page)
file(READ ${FILE} shown)
string(FIND "${page}" "```cpp\n${shown}```\n" place)
if(place EQUAL -1)
    message(FATAL_ERROR "${PAGE} shows something else than ${FILE}: copy the file into it")
endif()

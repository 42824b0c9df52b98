# The page of a recording. Its style and its scripts are put into page.html, and as it lets a
# browser obey these alone, their hashes, too. The whole becomes two texts in C++.
set(page_scripts recording.js words.js rows.js xml.js diagram.js details.js page.js)

# page_part(VARIABLE FILE...): the files' texts, one behind the other.
function(page_part variable)
  set(whole "\n")
  foreach(name IN LISTS ARGN)
    set(file ${CMAKE_CURRENT_SOURCE_DIR}/page/${name})
    set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${file})
    file(READ ${file} text)
    string(APPEND whole "${text}")
  endforeach()
  set(${variable} "${whole}" PARENT_SCOPE)
endfunction()

# page_hash(VARIABLE TEXT): as a Content-Security-Policy has it, in base 64, three bytes at a time.
function(page_hash variable text)
  set(digits ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/)
  string(SHA256 rest "${text}")
  set(hash)
  string(APPEND rest 00) # the last three bytes have one too few
  string(REGEX MATCHALL "......" threes "${rest}")
  foreach(three IN LISTS threes)
    foreach(shift 18 12 6 0)
      math(EXPR digit "(0x${three} >> ${shift}) & 63")
      string(SUBSTRING ${digits} ${digit} 1 digit)
      string(APPEND hash ${digit})
    endforeach()
  endforeach()
  string(REGEX REPLACE ".$" "=" hash ${hash})
  set(${variable} ${hash} PARENT_SCOPE)
endfunction()

page_part(style page.css)
page_part(script ${page_scripts})
page_part(page page.html)
page_hash(style_hash "${style}")
page_hash(script_hash "${script}")
string(STRIP "${page}" page)
string(REPLACE "@events@" ")~~\";\nconst std::string_view pelmsim::page_after_events = R\"~~(" page "${page}")
foreach(mark style style_hash script script_hash)
  string(REPLACE "@${mark}@" "${${mark}}" page "${page}")
endforeach()
file(CONFIGURE OUTPUT page_text.cpp @ONLY CONTENT
  "#include \"page/page_text.h\"\n\nconst std::string_view pelmsim::page_before_events = R\"~~(${page}\n)~~\";\n")

target_sources(pelmsim PRIVATE page/page.cpp ${CMAKE_CURRENT_BINARY_DIR}/page_text.cpp)

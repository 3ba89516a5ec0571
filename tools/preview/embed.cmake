# Writes the header OUT, with the bytes of each of FILES as a text: of bar.js as bar_js; and
# embedded_id, which is another one when they are.
set(header "#pragma once\n")
foreach(file IN LISTS FILES)
    get_filename_component(name ${file} NAME)
    string(MAKE_C_IDENTIFIER ${name} name)
    file(READ ${file} bytes HEX)
    string(REGEX REPLACE "(..)" "\\\\x\\1" bytes "${bytes}")
    # A line of the source each, so that no literal's length matters.
    string(REGEX REPLACE "(\\\\x0a)" "\\1\"\n    \"" bytes "${bytes}")
    string(APPEND header "static constexpr char ${name}[] =\n    \"${bytes}\";\n")
endforeach()
string(SHA256 id "${header}")
string(SUBSTRING ${id} 0 12 id)
string(APPEND header "static constexpr char embedded_id[] = \"${id}\";\n")
file(WRITE ${OUT} "${header}")

-- bench/engines/template.lua - a small template module, of the kind that Lua
-- programs carry with them: a page becomes a Lua function.
--   <%= expression %>   puts the expression's value into the page
--   <% statements %>    runs them
local template = {}

local escapes = {["&"] = "&amp;", ["<"] = "&lt;", [">"] = "&gt;", ['"'] = "&quot;"}

function template.escape(text)
    return (text:gsub('[&<>"]', escapes))
end

-- Turns a template's text into a function that appends the page to the list out.
function template.compile(text, name)
    local code = {"local out, v, t, q, h, include = ... local n = #out "}
    local position = 1
    while true do
        local first, last, mark, body = text:find("<%%(=?)(.-)%%>", position)
        local literal = text:sub(position, (first or 0) - 1)
        if literal ~= "" then
            code[#code + 1] = ("n = n + 1 out[n] = %q "):format(literal)
        end
        if not first then
            break
        end
        local put = mark == "=" and "n = n + 1 out[n] = tostring(%s) " or " %s "
        code[#code + 1] = put:format(body)
        position = last + 1
    end
    return assert(load(table.concat(code), name))
end

return template

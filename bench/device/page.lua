-- bench/device/page.lua FOLDER DATABASE - the overview by Lua, with CGILua's templates and
-- LuaSQL. FOLDER has overview.lp and texts.lua.
local folder, database = arg[1], arg[2]

-- CGILua calls load as later versions of Lua have it.
function load(code, name, _, environment)
    return setfenv(assert(loadstring(code, name)), environment or _G)
end

local lp = require "cgilua.lp"
local db = assert(require "luasql.sqlite3".sqlite3():connect(database))
local escapes = {["&"] = "&amp;", ["<"] = "&lt;", [">"] = "&gt;", ['"'] = "&quot;"}

t = dofile(folder .. "/texts.lua")

function e(value)
    return (tostring(value):gsub('[&<>"]', escapes))
end

function rows(query)
    local cursor = assert(db:execute(query))
    return function() return cursor:fetch() end
end

lp.include(folder .. "/overview.lp")

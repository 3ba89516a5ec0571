-- Starts the language server for the current buffer: one server for each site. In Neovim's own
-- configuration, or as the options of a plugin manager:
--   require('orv').setup({ cmd = { '/opt/bin/orv-check', '--lsp' }, root = '/path/of/the/site' })
local M = {}
local options = {}
local clients = {} -- by site; up to Neovim 0.7, which does not keep them by itself

-- cmd: the command as a list, {} starts nothing; root: of files without an orv-check.json above.
function M.setup(given)
  options = given or {}
end

local function attach(config)
  if vim.lsp.start then
    vim.lsp.start(config)
    return
  end
  local root = config.root_dir
  if not (clients[root] and vim.lsp.get_client_by_id(clients[root])) then
    clients[root] = vim.lsp.start_client(config)
  end
  if clients[root] then
    vim.lsp.buf_attach_client(0, clients[root])
  end
end

-- Called for each template that is opened.
function M.start()
  local cmd = options.cmd or vim.g.orv_check or { 'orv-check', '--lsp' }
  if #cmd == 0 then
    return
  end
  if vim.fn.executable(cmd[1]) == 0 then
    vim.notify_once(cmd[1] .. ' is not there: see :help orv-check', vim.log.levels.WARN)
    return
  end
  local folder = vim.fn.expand('%:p:h')
  local file = vim.fn.findfile('orv-check.json', vim.fn.escape(folder, ' ,;') .. ';')
  local root = file ~= '' and vim.fn.fnamemodify(file, ':p:h') or options.root or vim.g.orv_docroot or folder
  vim.bo.omnifunc = 'v:lua.vim.lsp.omnifunc' -- CTRL-X CTRL-O
  vim.bo.tagfunc = 'v:lua.vim.lsp.tagfunc' -- CTRL-]
  attach({ name = 'orv-check', cmd = cmd, root_dir = root })
end

return M

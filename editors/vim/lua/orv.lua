-- Starts the language server for the current buffer: one server for each site.
local M = {}
local clients = {} -- by site; up to Neovim 0.7, which does not keep them by itself

function M.start(cmd, root)
  local config = { name = 'orv-check', cmd = cmd, root_dir = root }
  if vim.lsp.start then
    vim.lsp.start(config)
    return
  end
  if not (clients[root] and vim.lsp.get_client_by_id(clients[root])) then
    clients[root] = vim.lsp.start_client(config)
  end
  if clients[root] then
    vim.lsp.buf_attach_client(0, clients[root])
  end
end

return M

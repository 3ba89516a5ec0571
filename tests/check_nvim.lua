-- Run by check_vim.sh in Neovim on a page of a copy of the demo site, with the plugin where plugin
-- managers put it: what the language server finds, completes, explains and mends there.
local function expect(what, got, wanted)
  if not vim.deep_equal(got, wanted) then
    io.stderr:write(what .. ': got ' .. vim.inspect(got) .. ', not ' .. vim.inspect(wanted) .. '\n')
    vim.cmd('cquit!')
  end
end

local function found(code)
  return #vim.tbl_filter(function(one) return one.code == code end, vim.diagnostic.get(0))
end

local function ask(method, line, column, more)
  vim.api.nvim_win_set_cursor(0, { line, column })
  local about = vim.tbl_extend('force', vim.lsp.util.make_position_params(), more or {})
  local answers = vim.lsp.buf_request_sync(0, method, about, 20000)
  return vim.tbl_values(answers)[1].result
end

expect('file type', vim.bo.filetype, 'orv')
vim.wait(20000, function() return found('variable-unset') > 0 end, 50)
expect('findings', { found('variable-unset'), found('value-column') }, { 1, 1 })
expect('hover', ask('textDocument/hover', 2, 3).contents.value:match('for each row'), 'for each row')

-- As it is typed, CTRL-X CTRL-O and all: the menu comes when the server has answered.
local timer = vim.loop.new_timer()
timer:start(50, 50, vim.schedule_wrap(function()
  if vim.fn.pumvisible() == 1 then
    timer:stop()
    vim.api.nvim_input('<C-Y>`?><Esc>')
  end
end))
vim.api.nvim_win_set_cursor(0, { 1, 0 })
local keys = vim.api.nvim_replace_termcodes(
  "O<?multiquery 'select id, name from device' `$<C-X><C-O>", true, false, true)
vim.api.nvim_feedkeys(keys, 'tx!', false)
expect('completion', vim.api.nvim_buf_get_lines(0, 0, 1, true),
  { "<?multiquery 'select id, name from device' `$0`?>" })

vim.wait(20000, function() return found('variable-unset') == 1 end, 50)
local place = { line = 3, character = 12 }
local actions = ask('textDocument/codeAction', 4, 12, { range = { start = place, ['end'] = place },
  context = { diagnostics = {} } })
vim.lsp.util.apply_workspace_edit(actions[1].edit, 'utf-16')
expect('mending', vim.api.nvim_buf_get_lines(0, 3, 4, true), { '<p><?echo $var:token?></p>' })
expect('finding', vim.wait(20000, function() return found('variable-unset') == 0 end, 50), true)
vim.cmd('qall!')

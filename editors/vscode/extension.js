// extension.js - starts orv-check as the language server of templates.
const vscode = require('vscode');
const { LanguageClient } = require('vscode-languageclient/node');

let client;

exports.activate = () => {
    const settings = vscode.workspace.getConfiguration('orv');
    const folder = vscode.workspace.workspaceFolders?.[0]?.uri.fsPath;
    client = new LanguageClient(
        'orv', 'orv-check',
        {
            command: settings.get('checker'),
            args: ['--lsp', ...settings.get('options')],
            options: { cwd: folder },
        },
        {
            documentSelector: [{ language: 'orv' }],
            synchronize: { // what a site has besides the open templates
                fileEvents: vscode.workspace.createFileSystemWatcher(
                    '**/{orv-check.json,*.po,*.sql,*.db,*.htm,*.frm}'),
            },
        });
    return client.start();
};

exports.deactivate = () => client?.stop();

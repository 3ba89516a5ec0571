// extension.js - starts orv-check as the language server of templates, for all folders of the
// window: it finds each file's site by itself.
const vscode = require('vscode');
const { LanguageClient } = require('vscode-languageclient/node');

const TEMPLATE = /<\?\s*(--|if\s|echo\s|print|include\s|setvariable|repeat\s|(multi)?query|calc\s|error\s|base64\s)|\{\?[A-Za-z0-9._:]+\?\}/;

let client;

async function start() {
    const settings = vscode.workspace.getConfiguration('orv');
    client = new LanguageClient(
        'orv', 'orv-check',
        {
            command: settings.get('checker'),
            args: ['--lsp', ...settings.get('options')],
            options: { cwd: vscode.workspace.workspaceFolders?.[0]?.uri.fsPath },
        },
        {
            documentSelector: [{ language: 'orv' }],
            synchronize: { // what a site has besides the open templates
                fileEvents: vscode.workspace.createFileSystemWatcher(
                    '**/{orv-check.json,*.po,*.sql,*.db,*.htm,*.frm}'),
            },
        });
    try {
        await client.start();
    } catch (problem) {
        client = undefined;
        vscode.window.showErrorMessage(
            `${settings.get('checker')} cannot be started (setting orv.checker): ${problem.message}`);
    }
}

// A page is a template when it holds a command or a text field; the first starts the server.
async function see(document) {
    if (document.languageId === 'html' && TEMPLATE.test(document.getText()))
        await vscode.languages.setTextDocumentLanguage(document, 'orv'); // it is opened anew
    else if (document.languageId === 'orv' && !client)
        await start();
}

exports.activate = (context) => {
    context.subscriptions.push(
        vscode.workspace.onDidOpenTextDocument(see),
        vscode.commands.registerCommand('orv.restart', async () => {
            await client?.stop();
            await start();
        }));
    vscode.workspace.textDocuments.forEach(see);
};

exports.deactivate = () => client?.stop();

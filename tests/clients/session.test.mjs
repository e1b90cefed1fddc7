// A real MCP client drives vorlo-mcp: the official TypeScript SDK starts the built executable the
// way desktop and editor hosts do (a child process over stdio, a minimal environment) and validates
// every reply against the protocol's schemas. Run through tests/clients/run.
import { after, before, describe, it } from 'node:test';
import assert from 'node:assert/strict';
import { cpSync, mkdtempSync, readFileSync, rmSync, writeFileSync } from 'node:fs';
import { tmpdir } from 'node:os';
import { join } from 'node:path';
import { fileURLToPath } from 'node:url';
import { Client } from '@modelcontextprotocol/sdk/client/index.js';
import { StdioClientTransport } from '@modelcontextprotocol/sdk/client/stdio.js';
import { ErrorCode, McpError } from '@modelcontextprotocol/sdk/types.js';

const executable = process.env.VORLO_MCP_EXECUTABLE ?? fileURLToPath(new URL('../../build/vorlo-mcp', import.meta.url));
const example = fileURLToPath(new URL('../../examples/library', import.meta.url));
const noteId = '6F1C2A9E-3B4D-4E8F-9A10-2B3C4D5E6F70', attachmentFolder = `Vorlo Data/Attachments/${noteId}`;
const meeting = 'Work/Meeting Notes.md', recipe = 'Recipes/Crème brûlée.md';
// The example library's photo and text file, and a (tiny) PDF: one attachment for each form of reply.
const attachments = {
  'whiteboard.png': readFileSync(join(example, attachmentFolder, 'whiteboard.png')),
  'agenda.txt': readFileSync(join(example, attachmentFolder, 'agenda.txt')),
  'Quarterly report.pdf': Buffer.from('%PDF-1.4\n%\xe2\xe3\xcf\xd3\n1 0 obj<<>>endobj\ntrailer<<>>\n%%EOF\n', 'latin1'),
};

// Every library made here, a copy of the example library with the PDF added, goes when the run ends.
const roots = [];
after(() => roots.forEach((root) => rmSync(root, { recursive: true, force: true })));

function makeLibrary(mcp = { enabled: true, allowWriting: true }) {
  const root = mkdtempSync(join(tmpdir(), 'vorlo-client-'));
  roots.push(root);
  const library = join(root, 'Library'), preferences = join(root, 'Preferences.json');
  cpSync(example, library, { recursive: true });
  writeFileSync(join(library, attachmentFolder, 'Quarterly report.pdf'), attachments['Quarterly report.pdf']);
  writeFileSync(preferences, JSON.stringify({ libraryPath: library, mcp }));
  return { root, library, preferences };
}

// As hosts start servers: an explicit environment with no locale variables. (The SDK itself adds
// a few safe variables such as USER and SHELL, and never LANG or LC_*.)
function startClient(preferences) {
  const env = { PATH: process.env.PATH ?? '/usr/bin:/bin', HOME: process.env.HOME ?? '/', VORLO_MCP_PREFERENCES: preferences };
  const transport = new StdioClientTransport({ command: executable, args: [], env, stderr: 'pipe' });
  const session = { client: new Client({ name: 'vorlo-client-test', version: '1.0.0' }), transport, errors: [], stderr: '' };
  transport.stderr?.on('data', (chunk) => (session.stderr += chunk));
  session.client.onerror = (error) => session.errors.push(error);
  return session;
}

describe('a session through the official MCP TypeScript SDK', () => {
  const library = makeLibrary(), session = startClient(library.preferences);
  const file = (path) => readFileSync(join(library.library, path), 'utf8');
  before(() => session.client.connect(session.transport));
  after(() => session.client.close());

  // The exact catalogue and the initialize reply are the protocol transcript's; here the SDK checks their shape.
  it('initializes and lists the six tools', async () => {
    await session.client.ping();
    assert.deepEqual((await session.client.listTools()).tools.map((tool) => tool.name),
                     ['list_notes', 'search_notes', 'read_note', 'read_attachment', 'create_note', 'update_note']);
  });

  // Each call in turn, what to take from its structured content (or whole reply) and what that must
  // be: the reads, then a create, an update at the revision read, and that update again, now stale.
  it('lists, filters, searches with case and accents folded, reads, creates, updates and refuses the stale revision', async () => {
    const paths = ({ notes }) => notes.map((note) => note.path).sort();
    const attachment = (name) => ['read_attachment', { path: meeting, attachment_name: name }, (_, result) => result.content[1]];
    const base64 = (name) => attachments[name].toString('base64');
    let revision, updated;
    const update = (content) => () => ({ path: meeting, expected_revision: revision, content, pinned: true });
    const calls = [
      ['list_notes', {}, ({ notes }) => notes.length, 12],
      ['list_notes', { folder: 'work' }, paths, [meeting, 'Work/Roadmap.md']],
      ['search_notes', { query: 'CREME BRULEE' }, ({ total_matches, notes }) =>
        [total_matches, notes[0].path, /water bath/.test(notes[0].snippet)], [3, recipe, true]],
      ['read_note', { path: meeting }, (note) => [note.title, /ship the beta on December 1st/.test(note.content),
        /^[0-9a-f]{64}$/.test(revision = note.revision), note.attachments.map((attachment) => attachment.name).sort()],
       ['Planning meeting', true, true, Object.keys(attachments).sort()]],
      [...attachment('whiteboard.png'), { type: 'image', mimeType: 'image/png', data: base64('whiteboard.png') }],
      [...attachment('agenda.txt'), { type: 'text', text: attachments['agenda.txt'].toString() }],
      [...attachment('Quarterly report.pdf'), { type: 'resource', resource: {
        uri: `vorlo://attachment/${noteId}/Quarterly report.pdf`, mimeType: 'application/pdf', blob: base64('Quarterly report.pdf') } }],
      ['create_note', { title: 'Packing list', folder: 'Travel', content: '- passport\n- adapter #travel', tags: ['lists'] },
       ({ created, note }) => [created, note.path, note.tags, /- passport\n- adapter #travel$/.test(file(note.path))],
       [true, 'Travel/Packing list.md', ['lists', 'travel'], true]],
      ['update_note', update('Budget approved.'), ({ note }, result) => [result.structuredContent.updated, note.revision === revision,
        /\npinned: true\n[^]*\n---\nBudget approved\.$/.test(updated = file(meeting))], [true, false, true]],
      ['update_note', update('An older draft.'), (_, result) => [result.isError, file(meeting) === updated,
        /changed after it was read/.test(result.content[0].text)], [true, true, true]],
    ];
    for (const [name, args, pick, expected] of calls) {
      const result = await session.client.callTool({ name, arguments: typeof args === 'function' ? args() : args });
      if (!result.isError) assert.deepEqual(JSON.parse(result.content[0].text), result.structuredContent);
      assert.deepEqual(pick(result.structuredContent ?? {}, result), expected, `${name} ${JSON.stringify(args)}`);
    }
  });

  it('raises an MCP error for an unknown tool, and kept the transport clean', async () => {
    await assert.rejects(session.client.callTool({ name: 'delete_everything', arguments: {} }),
                         (error) => error instanceof McpError && error.code === ErrorCode.InvalidParams);
    assert.deepEqual([session.errors, session.stderr], [[], '']);
  });
});

describe('a server that may not start', () => {
  it('closes the connection and says why in one line on standard error', async () => {
    const session = startClient(makeLibrary({ enabled: false }).preferences);
    const exited = new Promise((resolve) => (session.transport.onclose = resolve));
    await assert.rejects(session.client.connect(session.transport));
    await exited;
    assert.equal(session.stderr, 'Vorlo MCP: MCP access is disabled. Enable it in Vorlo Settings > MCP before connecting.\n');
  });
});

// A real MCP client drives vorlo-mcp: the official TypeScript SDK starts the built executable the
// way desktop and editor hosts do (a child process over stdio, a minimal environment) and validates
// every reply against the protocol's schemas. Run through tests/clients/run.
import { after, before, describe, it } from 'node:test';
import assert from 'node:assert/strict';
import { mkdirSync, mkdtempSync, readFileSync, rmSync, writeFileSync } from 'node:fs';
import { tmpdir } from 'node:os';
import { dirname, join } from 'node:path';
import { fileURLToPath } from 'node:url';
import { Client } from '@modelcontextprotocol/sdk/client/index.js';
import { StdioClientTransport } from '@modelcontextprotocol/sdk/client/stdio.js';
import { ErrorCode, McpError } from '@modelcontextprotocol/sdk/types.js';

const executable = process.env.VORLO_MCP_EXECUTABLE ?? fileURLToPath(new URL('../../build/vorlo-mcp', import.meta.url));
const noteId = '3C9A1B2D-4E5F-4A6B-8C7D-9E0F1A2B3C4D';
const meeting = 'Work/Budget meeting.md', recipe = 'Recipes/Crème brûlée.md';
// A 1x1 PNG, a plain text file and a (tiny) PDF: one attachment for each form of reply.
const attachments = {
  'whiteboard.png': Buffer.from(
    'iVBORw0KGgoAAAANSUhEUgAAAAEAAAABCAYAAAAfFcSJAAAADUlEQVR4nGP4z8DwHwAFAAH/iZk9HQAAAABJRU5ErkJggg==', 'base64'),
  'agenda.txt': Buffer.from('Agenda\n1. Budget\n2. Hiring — décisions\n'),
  'Quarterly report.pdf': Buffer.from('%PDF-1.4\n%\xe2\xe3\xcf\xd3\n1 0 obj<<>>endobj\ntrailer<<>>\n%%EOF\n', 'latin1'),
};

// Every library made here goes when the run ends.
const roots = [];
after(() => roots.forEach((root) => rmSync(root, { recursive: true, force: true })));

function makeLibrary(mcp = { enabled: true, allowWriting: true }) {
  const root = mkdtempSync(join(tmpdir(), 'vorlo-client-'));
  roots.push(root);
  const library = join(root, 'Library'), preferences = join(root, 'Preferences.json');
  const files = {
    [meeting]: `---\nid: ${noteId}\ntitle: "Budget meeting"\ncreated: 2026-03-02T09:00:00Z\nmodified: 2026-03-02T10:30:00Z
tags: ["work"]\npinned: false\narchived: false\n---\nWe agreed on the budget for the spring release. #work/decisions\n`,
    [recipe]: '# Crème brûlée\nBake in a water bath. #dessert\n',
    'Welcome.md': 'Start here.\n',
  };
  for (const [name, bytes] of Object.entries(attachments)) files[`Vorlo Data/Attachments/${noteId}/${name}`] = bytes;
  for (const [path, bytes] of Object.entries(files)) {
    mkdirSync(dirname(join(library, path)), { recursive: true });
    writeFileSync(join(library, path), bytes);
  }
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

  it('initializes and lists the six tools', async () => {
    assert.equal(session.client.getServerVersion()?.name, 'Vorlo');
    assert.ok(session.client.getServerCapabilities()?.tools, 'the server announces tools');
    await session.client.ping();
    const { tools } = await session.client.listTools();
    assert.deepEqual(tools.map((tool) => [tool.name, tool.inputSchema.type, tool.annotations?.readOnlyHint]),
                     [['list_notes', 'object', true], ['search_notes', 'object', true], ['read_note', 'object', true],
                      ['read_attachment', 'object', true], ['create_note', 'object', false], ['update_note', 'object', false]]);
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
      ['list_notes', {}, paths, [recipe, 'Welcome.md', meeting]],
      ['list_notes', { folder: 'work' }, paths, [meeting]],
      ['search_notes', { query: 'CREME BRULEE' }, ({ total_matches, notes }) =>
        [total_matches, notes[0].path, /water bath/.test(notes[0].snippet)], [1, recipe, true]],
      ['read_note', { path: meeting }, (note) => [note.title, /budget for the spring release/.test(note.content),
        /^[0-9a-f]{64}$/.test(revision = note.revision), note.attachments.map((attachment) => attachment.name).sort()],
       ['Budget meeting', true, true, Object.keys(attachments).sort()]],
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

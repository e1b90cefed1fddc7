// A real MCP client drives vorlo-mcp: the official TypeScript SDK starts the built executable the
// way desktop and editor hosts do (a child process over stdio, a minimal environment) and validates
// every reply against the protocol's schemas. Run through tests/clients/run.
import { after, before, describe, it } from 'node:test';
import assert from 'node:assert/strict';
import { Buffer } from 'node:buffer';
import { mkdirSync, mkdtempSync, readFileSync, rmSync, writeFileSync } from 'node:fs';
import { tmpdir } from 'node:os';
import { dirname, join } from 'node:path';
import { fileURLToPath } from 'node:url';

import { Client } from '@modelcontextprotocol/sdk/client/index.js';
import { StdioClientTransport } from '@modelcontextprotocol/sdk/client/stdio.js';
import { ErrorCode, McpError } from '@modelcontextprotocol/sdk/types.js';

const executable =
  process.env.VORLO_MCP_EXECUTABLE ?? join(dirname(fileURLToPath(import.meta.url)), '..', '..', 'build', 'vorlo-mcp');

const noteId = '3C9A1B2D-4E5F-4A6B-8C7D-9E0F1A2B3C4D';
// A 1x1 PNG, a plain text file and a (tiny) PDF: one attachment for each form of reply.
const png = Buffer.from(
  'iVBORw0KGgoAAAANSUhEUgAAAAEAAAABCAYAAAAfFcSJAAAADUlEQVR4nGP4z8DwHwAFAAH/iZk9HQAAAABJRU5ErkJggg==',
  'base64',
);
const agenda = 'Agenda\n1. Budget\n2. Hiring — décisions\n';
const pdf = Buffer.from('%PDF-1.4\n%\xe2\xe3\xcf\xd3\n1 0 obj<<>>endobj\ntrailer<<>>\n%%EOF\n', 'latin1');

const meetingNote = `---
id: ${noteId}
title: "Budget meeting"
created: 2026-03-02T09:00:00Z
modified: 2026-03-02T10:30:00Z
tags: ["work"]
pinned: false
archived: false
---
We agreed on the budget for the spring release. #work/decisions
`;

function makeLibrary() {
  const root = mkdtempSync(join(tmpdir(), 'vorlo-client-'));
  const library = join(root, 'Library');
  const attachments = join(library, 'Vorlo Data', 'Attachments', noteId);
  mkdirSync(join(library, 'Work'), { recursive: true });
  mkdirSync(join(library, 'Recipes'), { recursive: true });
  mkdirSync(attachments, { recursive: true });
  writeFileSync(join(library, 'Work', 'Budget meeting.md'), meetingNote);
  writeFileSync(join(library, 'Recipes', 'Crème brûlée.md'), '# Crème brûlée\nBake in a water bath. #dessert\n');
  writeFileSync(join(library, 'Welcome.md'), 'Start here.\n');
  writeFileSync(join(attachments, 'whiteboard.png'), png);
  writeFileSync(join(attachments, 'agenda.txt'), agenda);
  writeFileSync(join(attachments, 'Quarterly report.pdf'), pdf);
  const preferences = join(root, 'Preferences.json');
  writeFileSync(preferences, JSON.stringify({ libraryPath: library, mcp: { enabled: true, allowWriting: true } }));
  return { root, library, preferences };
}

// As hosts start servers: an explicit environment with no locale variables. (The SDK itself adds
// a few safe variables such as USER and SHELL, and never LANG or LC_*.)
function startClient(preferences) {
  const transport = new StdioClientTransport({
    command: executable,
    args: [],
    env: { PATH: process.env.PATH ?? '/usr/bin:/bin', HOME: process.env.HOME ?? '/', VORLO_MCP_PREFERENCES: preferences },
    stderr: 'pipe',
  });
  let standardError = '';
  transport.stderr?.on('data', (chunk) => {
    standardError += chunk;
  });
  const client = new Client({ name: 'vorlo-client-test', version: '1.0.0' });
  const transportErrors = [];
  client.onerror = (error) => transportErrors.push(error);
  return { client, transport, transportErrors, standardError: () => standardError };
}

function metadataText(result) {
  assert.equal(result.content[0].type, 'text');
  return JSON.parse(result.content[0].text);
}

describe('a session through the official MCP TypeScript SDK', () => {
  let library;
  let session;
  let revision;

  before(async () => {
    library = makeLibrary();
    session = startClient(library.preferences);
    await session.client.connect(session.transport);
  });

  after(async () => {
    await session?.client.close();
    rmSync(library.root, { recursive: true, force: true });
  });

  it('initializes and lists the six tools', async () => {
    assert.equal(session.client.getServerVersion()?.name, 'Vorlo');
    assert.ok(session.client.getServerCapabilities()?.tools, 'the server announces tools');
    await session.client.ping();
    const { tools } = await session.client.listTools();
    assert.deepEqual(
      tools.map((tool) => tool.name),
      ['list_notes', 'search_notes', 'read_note', 'read_attachment', 'create_note', 'update_note'],
    );
    for (const tool of tools) assert.equal(tool.inputSchema.type, 'object');
    const readOnly = Object.fromEntries(tools.map((tool) => [tool.name, tool.annotations?.readOnlyHint]));
    assert.equal(readOnly.read_note, true);
    assert.equal(readOnly.update_note, false);
  });

  it('lists notes, newest first, and filters by folder', async () => {
    const all = await session.client.callTool({ name: 'list_notes', arguments: {} });
    assert.equal(all.isError, false);
    assert.deepEqual(all.structuredContent.notes.map((note) => note.path).sort(), [
      'Recipes/Crème brûlée.md',
      'Welcome.md',
      'Work/Budget meeting.md',
    ]);
    assert.deepEqual(metadataText(all), all.structuredContent);

    const work = await session.client.callTool({ name: 'list_notes', arguments: { folder: 'work' } });
    assert.deepEqual(work.structuredContent.notes.map((note) => note.title), ['Budget meeting']);
  });

  it('searches with case and accents folded', async () => {
    const result = await session.client.callTool({ name: 'search_notes', arguments: { query: 'CREME BRULEE' } });
    assert.equal(result.isError, false);
    assert.equal(result.structuredContent.total_matches, 1);
    assert.equal(result.structuredContent.notes[0].path, 'Recipes/Crème brûlée.md');
    assert.match(result.structuredContent.notes[0].snippet, /water bath/);
  });

  it('reads a note with its attachments and revision', async () => {
    const result = await session.client.callTool({ name: 'read_note', arguments: { path: 'Work/Budget meeting.md' } });
    assert.equal(result.isError, false);
    const note = result.structuredContent;
    assert.equal(note.title, 'Budget meeting');
    assert.match(note.content, /budget for the spring release/);
    assert.match(note.revision, /^[0-9a-f]{64}$/);
    assert.deepEqual(note.attachments.map((attachment) => attachment.name).sort(), [
      'Quarterly report.pdf',
      'agenda.txt',
      'whiteboard.png',
    ]);
    revision = note.revision;
  });

  it('returns an image attachment as image content', async () => {
    const result = await session.client.callTool({
      name: 'read_attachment',
      arguments: { path: 'Work/Budget meeting.md', attachment_name: 'whiteboard.png' },
    });
    assert.equal(result.isError, false);
    assert.equal(result.content.length, 2);
    assert.deepEqual(metadataText(result), result.structuredContent);
    const [, image] = result.content;
    assert.equal(image.type, 'image');
    assert.equal(image.mimeType, 'image/png');
    assert.deepEqual(Buffer.from(image.data, 'base64'), png);
  });

  it('returns a text attachment as text content', async () => {
    const result = await session.client.callTool({
      name: 'read_attachment',
      arguments: { path: 'Work/Budget meeting.md', attachment_name: 'agenda.txt' },
    });
    assert.equal(result.isError, false);
    assert.deepEqual(result.content[1], { type: 'text', text: agenda });
    assert.equal(result.structuredContent.size_bytes, Buffer.byteLength(agenda));
  });

  it('returns any other attachment as an embedded resource', async () => {
    const result = await session.client.callTool({
      name: 'read_attachment',
      arguments: { path: 'Work/Budget meeting.md', attachment_name: 'Quarterly report.pdf' },
    });
    assert.equal(result.isError, false);
    const [, embedded] = result.content;
    assert.equal(embedded.type, 'resource');
    assert.equal(embedded.resource.uri, `vorlo://attachment/${noteId}/Quarterly report.pdf`);
    assert.equal(embedded.resource.mimeType, 'application/pdf');
    assert.deepEqual(Buffer.from(embedded.resource.blob, 'base64'), pdf);
  });

  it('creates a note', async () => {
    const result = await session.client.callTool({
      name: 'create_note',
      arguments: { title: 'Packing list', folder: 'Travel', content: '- passport\n- adapter #travel', tags: ['lists'] },
    });
    assert.equal(result.isError, false);
    assert.equal(result.structuredContent.created, true);
    const note = result.structuredContent.note;
    assert.equal(note.path, 'Travel/Packing list.md');
    assert.deepEqual(note.tags, ['lists', 'travel']);
    assert.match(readFileSync(join(library.library, note.path), 'utf8'), /- passport\n- adapter #travel$/);
  });

  it('updates a note at the revision it read, and refuses the stale revision afterwards', async () => {
    const file = join(library.library, 'Work', 'Budget meeting.md');
    const updated = await session.client.callTool({
      name: 'update_note',
      arguments: { path: 'Work/Budget meeting.md', expected_revision: revision, content: 'Budget approved.', pinned: true },
    });
    assert.equal(updated.isError, false);
    assert.equal(updated.structuredContent.updated, true);
    assert.notEqual(updated.structuredContent.note.revision, revision);
    const afterUpdate = readFileSync(file, 'utf8');
    assert.match(afterUpdate, /\npinned: true\n/);
    assert.match(afterUpdate, /\n---\nBudget approved\.$/);

    const stale = await session.client.callTool({
      name: 'update_note',
      arguments: { path: 'Work/Budget meeting.md', expected_revision: revision, content: 'An older draft.' },
    });
    assert.equal(stale.isError, true);
    assert.match(stale.content[0].text, /changed after it was read/);
    assert.equal(readFileSync(file, 'utf8'), afterUpdate);
  });

  it('raises an MCP error for an unknown tool', async () => {
    await assert.rejects(
      session.client.callTool({ name: 'delete_everything', arguments: {} }),
      (error) => error instanceof McpError && error.code === ErrorCode.InvalidParams,
    );
  });

  it('kept the transport clean: no unparsable line and nothing on standard error', () => {
    assert.deepEqual(session.transportErrors, []);
    assert.equal(session.standardError(), '');
  });
});

describe('a server that may not start', () => {
  it('closes the connection and says why in one line on standard error', async () => {
    const library = makeLibrary();
    try {
      writeFileSync(library.preferences, JSON.stringify({ libraryPath: library.library, mcp: { enabled: false } }));
      const session = startClient(library.preferences);
      const exited = new Promise((resolve) => {
        session.transport.onclose = resolve;
      });
      await assert.rejects(session.client.connect(session.transport));
      await exited;
      assert.equal(
        session.standardError(),
        'Vorlo MCP: MCP access is disabled. Enable it in Vorlo Settings > MCP before connecting.\n',
      );
    } finally {
      rmSync(library.root, { recursive: true, force: true });
    }
  });
});

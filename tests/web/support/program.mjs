// SPDX-License-Identifier: MIT
// The program itself, for tests from end to end. VK410_PROGRAM says where it is.
import assert from 'node:assert/strict';
import { spawn, spawnSync } from 'node:child_process';
import { mkdtempSync, rmSync } from 'node:fs';
import { tmpdir } from 'node:os';
import { join } from 'node:path';
import { PATIENCE_MS } from './browser.mjs';

const program = process.env.VK410_PROGRAM;

/// Starts a verb that serves the page; stops with the test. Result: the page's address.
export function serve(t, ...args) {
  const child = spawn(program, [...args, '--listen', '127.0.0.1:0'], { stdio: ['ignore', 'ignore', 'pipe'] });
  const ended = new Promise((resolve) => child.on('exit', resolve));
  t.after(async () => {
    child.kill('SIGINT');
    await ended;
  });
  return new Promise((resolve, reject) => {
    let text = '';
    const timer = setTimeout(
      () => reject(new Error(`no address within ${PATIENCE_MS} ms: ${text}`)),
      PATIENCE_MS,
    );
    child.stderr.on('data', (data) => {
      text += data;
      const [address] = /http:\/\/[\d.]+:\d+/.exec(text) ?? [];
      if (address) {
        clearTimeout(timer);
        resolve(`${address}/`);
      }
    });
    child.on('exit', (code) => reject(new Error(`ended with ${code}: ${text}`)));
  });
}

/// A recording of a known scene, with losses.
export function record(t, seconds) {
  const folder = mkdtempSync(join(tmpdir(), 'vk410-'));
  t.after(() => rmSync(folder, { recursive: true }));
  const file = join(folder, 'band.pcap');
  const { status } = spawnSync(program, [
    'demo',
    'band',
    '--headless',
    '--for',
    String(seconds),
    '--drop',
    '0.05',
    '--record',
    file,
  ]);
  assert.equal(status, 1, 'the program says that something was lost');
  return file;
}

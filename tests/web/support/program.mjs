// SPDX-License-Identifier: MIT
// The program itself, for tests from end to end. VK410_PROGRAM says where it is.
import assert from 'node:assert/strict';
import { spawn, spawnSync } from 'node:child_process';
import { mkdtempSync, rmSync } from 'node:fs';
import { tmpdir } from 'node:os';
import { join } from 'node:path';
import { PATIENCE_MS } from './browser.mjs';

const program = process.env.VK410_PROGRAM;

/// Starts a verb that serves the page. Result: its process, and a promise of the page's address.
export function launch(...args) {
  const child = spawn(program, [...args, '--listen', '127.0.0.1:0'], { stdio: ['ignore', 'ignore', 'pipe'] });
  const address = new Promise((resolve, reject) => {
    let text = '';
    const timer = setTimeout(
      () => reject(new Error(`no address within ${PATIENCE_MS} ms: ${text}`)),
      PATIENCE_MS,
    );
    const look = (data) => {
      text += data;
      const [found] = /http:\/\/[\d.]+:\d+/.exec(text) ?? [];
      if (!found) return;
      clearTimeout(timer);
      child.stderr.off('data', look);
      child.stderr.resume();
      resolve(`${found}/`);
    };
    child.stderr.on('data', look);
    child.on('exit', (code) => reject(new Error(`ended with ${code}: ${text}`)));
  });
  return { child, address };
}

/// The same, stopped with the test. Result: the page's address.
export function serve(t, ...args) {
  const { child, address } = launch(...args);
  const ended = new Promise((resolve) => child.on('exit', resolve));
  t.after(async () => {
    child.kill('SIGINT');
    await ended;
  });
  return address;
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

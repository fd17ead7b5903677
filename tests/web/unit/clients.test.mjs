// SPDX-License-Identifier: MIT
import assert from 'node:assert/strict';
import { readFileSync } from 'node:fs';
import { test } from 'node:test';

const read = (path) => readFileSync(new URL(`../../../${path}`, import.meta.url), 'utf8');

for (const [file, fence] of [
  ['web/clients/stream.js', 'js'],
  ['web/clients/stream.py', 'python'],
])
  test(`${file} is the client of the documentation, in at most 30 lines`, () => {
    const text = read(file);

    assert.ok(text.split('\n').length <= 31);
    assert.ok(read('docs/stream-api.md').includes(`\`\`\`${fence}\n${text}\`\`\`\n`));
  });

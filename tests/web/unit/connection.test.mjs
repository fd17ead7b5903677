// SPDX-License-Identifier: MIT
import assert from 'node:assert/strict';
import { test } from 'node:test';
import { pauseBefore } from '../../../web/js/connection.mjs';

test('pauses between tries grow and stay below eight seconds', () => {
  const pauses = [0, 1, 2, 3, 4, 10, 100].map((attempt) => pauseBefore(attempt, 1));
  assert.deepEqual(pauses, [500, 1000, 2000, 4000, 8000, 8000, 8000]);
});

test('viewers do not all come back at the same moment', () => {
  assert.equal(pauseBefore(1, 0), 750);
  assert.equal(pauseBefore(1, 1), 1000);
});

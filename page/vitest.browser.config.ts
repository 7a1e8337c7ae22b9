import { defineConfig } from 'vitest/config';

// All tests share one building, so one runs after another.
export default defineConfig({
  test: {
    dir: 'tests/browser',
    globalSetup: 'tests/browser/global_setup.ts',
    fileParallelism: false,
    testTimeout: 240_000,
    hookTimeout: 240_000,
  },
});

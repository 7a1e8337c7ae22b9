import { defineConfig } from 'vitest/config';
import { kBuildings } from './tests/browser/buildings';

// As many files at once as there are buildings; the tests of a file share one, and run one after another.
export default defineConfig({
  test: {
    dir: 'tests/browser',
    globalSetup: 'tests/browser/global_setup.ts',
    pool: 'forks',
    poolOptions: { forks: { minForks: kBuildings, maxForks: kBuildings } },
    testTimeout: 600_000,
    hookTimeout: 600_000,
    // Two browsers and six cameras at once on a machine that others load: what happens once in a thousand tests is told
    // as a warning, what happens twice in a row fails.
    retry: 1,
    reporters: ['./tests/browser/reporter.ts'],
  },
});

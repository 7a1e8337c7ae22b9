import { spawnSync } from 'node:child_process';
import { join } from 'node:path';
import { describe, expect, test } from 'vitest';
import { building, expectText, isMissing, open, show, useBrowser } from './browser';

const kViewer = { username: 'vera', password: 'look but do not touch' };

describe.skipIf(isMissing)('A viewer', () => {
  useBrowser();

  test('sees the live picture, counts and reports, and nothing to change them with', async () => {
    const camera =
      process.env.CAMERA_PROGRAM ??
      join(process.env.DEMO_PROGRAM ?? join(__dirname, '../../../build/release/bin/senvo-demo'), '../senvo-camera');
    const { state } = building!;
    const made = spawnSync(camera, ['password', '--state', state, '--user', kViewer.username, '--role', 'viewer'], {
      input: `${kViewer.password}\n`,
      encoding: 'utf8',
    });
    expect([made.status, made.stderr]).toEqual([0, '']);
    const refused: string[] = [];
    const page = await open({ httpCredentials: kViewer }, async (one) => {
      one.on('response', (response) => {
        if (response.status() === 403) refused.push(response.url());
      });
    });
    await show(page, 'live');
    await expectText(page, 'occupancy', /\d/);
    await page.locator('.picture img').waitFor();
    expect(await page.locator('nav.tabs a').count()).toBe(2);
    expect(await page.getByRole('button', { name: /^(Reset|Raise|Clear)/ }).count()).toBe(0);
    await page.goto(page.url().replace('#/live', '#/areas'));
    await page.getByRole('heading', { level: 1, name: /live/i }).waitFor();
    expect(await page.locator('form').count()).toBe(0);
    await show(page, 'reports');
    await expectText(page, 'report-state', /\d/);
    expect(refused).toEqual([]);
  });
});

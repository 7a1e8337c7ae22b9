import { execFileSync } from 'node:child_process';
import { readdirSync, readFileSync, readlinkSync } from 'node:fs';
import { dirname, join } from 'node:path';
import { describe, expect, test } from 'vitest';
import { building, eventually, expectText, isMissing, opened, save, stored, tabs, show, useBrowser } from './browser';

/** The leader's application: the process in its folder that is not the web server. */
function application(): number {
  const folder = join(building!.state, 'root/usr/local/packages/ostrel_senvo');
  for (const entry of readdirSync('/proc')) {
    if (!/^\d+$/.test(entry)) continue;
    try {
      if (readlinkSync(`/proc/${entry}/cwd`) === folder && readFileSync(`/proc/${entry}/comm`, 'utf8').startsWith('ostrel_senvo')) return Number(entry);
    } catch {
      // It has ended meanwhile, or is somebody else's.
    }
  }
  return 0;
}

function setPassword(password: string): void {
  const camera = join(dirname(process.env.DEMO_PROGRAM ?? join(__dirname, '../../../build/release/bin/senvo-demo')), 'senvo-camera');
  execFileSync(camera, ['password', '--state', building!.state], { input: `${password}\n` });
}

describe.skipIf(isMissing)('Trouble', () => {
  useBrowser();

  test('a camera that is killed while the page is open is said to restart, and the page goes on', async () => {
    const page = await opened('live');
    await expectText(page, 'status', /Running|active|Slow/);
    const killed = application();
    process.kill(killed, 'SIGKILL');
    await expectText(page, 'status', /^Camera restarting$/);
    await page.getByRole('alert').filter({ hasText: 'goes on by itself' }).waitFor();
    await expectText(page, 'occupancy', /^–$/);
    await expectText(page, 'building', /^–$/);
    await expectText(page, 'status', /Running|active|Slow/);
    await expectText(page, 'occupancy', /^\d+$/);
    expect(application()).not.toBe(killed);
  });

  test('what was typed outlives the restart', async () => {
    const page = await opened('detection');
    await page.getByLabel('Number of objects').fill('4');
    process.kill(application(), 'SIGKILL');
    await expectText(page, 'status', /^Camera restarting$/);
    await page.getByRole('button', { name: 'Save', exact: true }).click();
    await page.getByRole('alert').filter({ hasText: 'the camera is restarting' }).first().waitFor();
    await expectText(page, 'status', /Running|active|Slow/);
    expect(await page.getByLabel('Number of objects').inputValue()).toBe('4');
    await save(page);
    expect(await stored(page, 'MinNumberOfPeopleForTrigger')).toBe('4');
    await page.getByLabel('Number of objects').fill('1');
    await save(page);
  });

  test('a page that is opened while the camera is away fills itself', async () => {
    process.kill(application(), 'SIGKILL');
    const page = await opened('cameras');
    await page.locator('input[name=CamName]').waitFor();
    await expectText(page, 'status', /Running|active|Slow/);
  });

  test('a camera that is not there at all is said to give no answer', async () => {
    const page = await opened('live');
    await page.context().setOffline(true);
    await expectText(page, 'status', /^No answer$/);
    await page.context().setOffline(false);
    await expectText(page, 'status', /Running|active|Slow/);
  });

  test('who is signed out is told so on every tab, and is not asked again and again', async () => {
    const page = await opened('live');
    setPassword('another-password');
    try {
      await expectText(page, 'status', /^Signed out$/);
      let asked = 0;
      page.on('request', (request) => (asked += request.url().includes('get_data_panel_info') ? 1 : 0));
      for (const tab of tabs) {
        await page.evaluate((name) => (location.hash = `#/${name}`), tab);
        await page.getByRole('heading', { level: 1, name: new RegExp(tab, 'i') }).waitFor();
        await page.getByRole('alert').filter({ hasText: 'You are signed out' }).waitFor();
      }
      expect(asked).toBe(0);
    } finally {
      setPassword(building!.password);
    }
    await show(page, 'live');
    await page.reload();
    await expectText(page, 'status', /Running|active|Slow/);
    await eventually(() => page.getByRole('button', { name: 'Sign in again' }).count(), (count) => count === 0);
  });
});

import { execFileSync } from 'node:child_process';
import { readdirSync, readFileSync, readlinkSync, rmSync, statSync, truncateSync } from 'node:fs';
import { dirname, join } from 'node:path';
import { describe, expect, test } from 'vitest';
import {
  ask,
  building,
  eventually,
  expectText,
  isMissing,
  kRuns,
  open,
  opened,
  save,
  show,
  store,
  stored,
  tabs,
  useBrowser,
} from './browser';

/** The leader's application: the process in its folder that is not the web server. */
function application(): number {
  const folder = join(building!.state, 'root/usr/local/packages/ostrel_senvo');
  for (const entry of readdirSync('/proc')) {
    if (!/^\d+$/.test(entry)) continue;
    try {
      if (
        readlinkSync(`/proc/${entry}/cwd`) === folder &&
        readFileSync(`/proc/${entry}/comm`, 'utf8').startsWith('ostrel_senvo')
      )
        return Number(entry);
    } catch {
      // It has ended meanwhile, or is somebody else's.
    }
  }
  return 0;
}

/** Does something while the application is not there: whoever would start it again is stopped meanwhile. */
async function whileAway(something: () => Promise<void>): Promise<void> {
  const running = await eventually(
    async () => application(),
    (pid) => pid !== 0,
  );
  process.kill(building!.pid, 'SIGSTOP');
  try {
    process.kill(running, 'SIGKILL');
    await something();
  } finally {
    process.kill(building!.pid, 'SIGCONT');
  }
}

const kLedger = () => join(building!.state, 'root/usr/local/packages/ostrel_senvo/localdata/ledger');

/** The ledger's files as they are, by the number of their first line, which they keep when they are renamed. */
function ledgerSizes(): Map<string, number> {
  const names = readdirSync(kLedger()).filter((name) => name.includes('.ndjson'));
  return new Map(names.map((name) => [name.split('-')[0], statSync(join(kLedger(), name)).size]));
}

const crossingsIn = (lines: string) => lines.split('\n').filter((line) => line.includes('"kind":"crossing"')).length;

/** Takes from the ledger what was written behind these sizes, as a power cut may; the crossings that are left. */
function cutLedger(sizes: Map<string, number>): number {
  let left = 0;
  for (const name of readdirSync(kLedger())) {
    const file = join(kLedger(), name);
    const size = name.includes('.ndjson') ? sizes.get(name.split('-')[0]) : undefined;
    if (size === undefined) rmSync(file);
    else {
      truncateSync(file, size);
      left += crossingsIn(readFileSync(file, 'utf8'));
    }
  }
  return left;
}

function setPassword(password: string): void {
  const camera = join(
    dirname(process.env.DEMO_PROGRAM ?? join(__dirname, '../../../build/release/bin/senvo-demo')),
    'senvo-camera',
  );
  execFileSync(camera, ['password', '--state', building!.state], { input: `${password}\n` });
}

describe.skipIf(isMissing)('Trouble', () => {
  useBrowser();

  test('a camera that is killed while the page is open is said to restart, and the page goes on', async () => {
    const page = await opened('live');
    await expectText(page, 'status', kRuns);
    await whileAway(async () => {
      await expectText(page, 'status', /^Camera restarting$/);
      await page.getByRole('alert').filter({ hasText: 'goes on by itself' }).waitFor();
      await expectText(page, 'occupancy', /^–$/);
      await expectText(page, 'building', /^–$/);
    });
    await expectText(page, 'status', kRuns);
    await expectText(page, 'occupancy', /^\d+$/);
  });

  test('each crossing is told once, though a power cut takes lines of the ledger, and though all of it goes', async () => {
    const before = ledgerSizes();
    const page = await opened('live');
    const told = async () =>
      Number(await page.getByTestId('came-in').textContent()) +
      Number(await page.getByTestId('went-out').textContent());
    await eventually(told, (count) => count > 0);
    const crossings = async () => crossingsIn(await ask(page, 'get_ledger&newest=1&kinds=crossing'));
    for (const sizes of [before, new Map<string, number>()]) {
      let kept = 0;
      // The page does not look before somebody has crossed.
      await page.route('**/*since=*', (route) => route.fulfill({ status: 503 }));
      await whileAway(async () => {
        await expectText(page, 'status', /^Camera restarting$/);
        await eventually(
          async () => {
            const isAway = application() === 0;
            if (isAway) kept = cutLedger(sizes);
            return isAway;
          },
          (isCut) => isCut,
        );
      });
      const toldBefore = await told();
      await eventually(crossings, (count) => count > kept);
      await page.unroute('**/*since=*');
      await eventually(
        async () => [await told(), toldBefore - kept + (await crossings())],
        ([shown, expected]) => shown === expected && shown > toldBefore,
      );
    }
  });

  test('what was typed outlives the restart', async () => {
    const page = await opened('detection');
    await page.getByLabel('Number of people or vehicles').fill('4');
    await whileAway(async () => {
      await expectText(page, 'status', /^Camera restarting$/);
      await page.getByRole('button', { name: 'Save', exact: true }).click();
      await page.getByRole('alert').filter({ hasText: 'the camera is restarting' }).first().waitFor();
    });
    await expectText(page, 'status', kRuns);
    expect(await page.getByLabel('Number of people or vehicles').inputValue()).toBe('4');
    await save(page);
    expect(await stored(page, 'MinNumberOfPeopleForTrigger')).toBe('4');
    await page.getByLabel('Number of people or vehicles').fill('1');
    await save(page);
  });

  test('a page that is opened while the camera is away fills itself', async () => {
    const page = await open();
    await whileAway(async () => {
      await show(page, 'cameras');
      await expectText(page, 'status', /^Camera restarting$/);
    });
    await page.locator('input[name=CamName]').waitFor();
    await expectText(page, 'status', kRuns);
  });

  test('a camera that is not there at all is said to give no answer', async () => {
    const page = await opened('live');
    const rows = page.getByTestId('cameras').locator('tbody tr');
    await rows.nth(2).waitFor();
    await page.context().setOffline(true);
    await expectText(page, 'status', /^No answer$/);
    expect(await rows.locator('.badge').allTextContents()).toEqual([
      'No answer',
      'not known at the moment',
      'not known at the moment',
    ]);
    await page.evaluate(() => (location.hash = '#/cameras'));
    await page
      .getByTestId('follower-1')
      .locator('.badge')
      .filter({ hasText: /^not known at the moment$/ })
      .waitFor();
    await page.context().setOffline(false);
    await expectText(page, 'status', kRuns);
  });

  test('who is signed out is told so on every tab, is not asked again and again, and goes on without losing anything', async () => {
    const page = await opened('detection');
    await page.getByLabel('Number of people or vehicles').fill('6');
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
      await page.getByRole('button', { name: 'Sign in again' }).click();
      await expectText(page, 'status', /^Signed out$/);
    } finally {
      setPassword(building!.password);
    }
    // The question of before may still be on its way; then a click asks nothing more.
    const again = page.getByRole('button', { name: 'Sign in again' });
    await eventually(
      async () => {
        if (await again.count()) await again.click({ timeout: 1000 }).catch(() => {});
        return page.getByTestId('status').first().innerText();
      },
      (text) => kRuns.test(text),
    );
    await eventually(
      () => again.count(),
      (count) => count === 0,
    );
    await page.evaluate(() => (location.hash = '#/detection'));
    expect(await page.getByLabel('Number of people or vehicles').inputValue()).toBe('6');
  });

  test('the browser asks for the login by itself, in front of the page', async () => {
    const page = await open({ httpCredentials: undefined });
    const session = await page.context().newCDPSession(page);
    let password = building!.password;
    let asked = 0;
    await session.send('Fetch.enable', { handleAuthRequests: true, patterns: [{ urlPattern: '*' }] });
    session.on(
      'Fetch.requestPaused',
      ({ requestId }) => void session.send('Fetch.continueRequest', { requestId }).catch(() => {}),
    );
    session.on('Fetch.authRequired', ({ requestId }) => {
      ++asked;
      const answer = password
        ? { response: 'ProvideCredentials' as const, username: 'operator', password }
        : { response: 'CancelAuth' as const };
      void session.send('Fetch.continueWithAuth', { requestId, authChallengeResponse: answer }).catch(() => {});
    });
    await show(page, 'detection');
    await page.getByLabel('Number of people or vehicles').fill('6');
    password = '';
    setPassword('another-password');
    try {
      await expectText(page, 'status', /^Signed out$/);
      const before = asked;
      password = 'another-password';
      await page.getByRole('button', { name: 'Sign in again' }).click();
      await expectText(page, 'status', kRuns);
      expect(await page.evaluate(() => document.activeElement!.id)).toBe('content');
      expect(asked).toBeGreaterThan(before);
      expect(await page.getByLabel('Number of people or vehicles').inputValue()).toBe('6');
      await save(page);
    } finally {
      password = building!.password;
      setPassword(password);
    }
    await store(page, { MinNumberOfPeopleForTrigger: '1' });
  });

  test('a page goes on by itself when another one is let in', async () => {
    const page = await opened('live');
    setPassword('another-password');
    try {
      await expectText(page, 'status', /^Signed out$/);
    } finally {
      setPassword(building!.password);
    }
    const other = await page.context().newPage();
    await show(other, 'live');
    await expectText(other, 'status', kRuns);
    await expectText(page, 'status', kRuns);
  });

  test('settings that could not be read are read again when asked', async () => {
    const page = await open({}, (one) =>
      one.route('**/*action=get_all_parameters', (route) => route.fulfill({ body: 'no settings' })),
    );
    await show(page, 'cameras');
    await page.getByText('The settings could not be read: the camera refused it.').waitFor();
    await page.getByRole('button', { name: 'Try again' }).focus();
    await page.unroute('**/*action=get_all_parameters');
    // The page also asks by itself after the camera's next answer; then there is nothing to click any more.
    await eventually(
      async () => {
        await page
          .getByRole('button', { name: 'Try again' })
          .click({ timeout: 1000 })
          .catch(() => {});
        return page.locator('input[name=CamName]').count();
      },
      (count) => count === 1,
    );
    expect(await page.evaluate(() => document.activeElement!.id)).toBe('content');
  });
});

import { once } from 'node:events';
import { existsSync, readFileSync } from 'node:fs';
import { createServer } from 'node:http';
import { AddressInfo } from 'node:net';
import { join } from 'node:path';
import type { Route } from 'playwright-core';
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
  reload,
  show,
  store,
  stored,
  useBrowser,
} from './browser';

/** One grey pixel. */
const kJpeg = Buffer.from(
  '/9j/4AAQSkZJRgABAQEASABIAAD/2wBDAAMCAgICAgMCAgIDAwMDBAYEBAQEBAgGBgUGCQgKCgkICQkKDA8MCgsOCwkJDRENDg8QEBEQCgwSExIQEw8QEBD/wAALCAABAAEBAREA/8QAFAABAAAAAAAAAAAAAAAAAAAACf/EABQQAQAAAAAAAAAAAAAAAAAAAAD/2gAIAQEAAD8AVN//2Q==',
  'base64',
);

/** After so many milliseconds a stream stands still; sooner than that it is tried again. */
const kStill = 10_000;

/** The ages of followers that have told nothing. */
const kNone = Array<string>(10).fill('-1');

/** A camera's ledger of crossings alone, and how it answers who asks for them. */
function aLedger() {
  const lines: string[] = [];
  const written = (direction: 'in' | 'out', entrance: number, time = new Date()) => {
    const line = {
      seq: lines.length + 1,
      epoch: 'e',
      t: time.toISOString(),
      kind: 'crossing',
      entrance,
      direction,
      class: 'Person',
    };
    lines.push(`${JSON.stringify(line)}\n`);
  };
  const answer = (route: Route) => {
    const since = Number(/since=e:(\d+)/.exec(route.request().url())?.[1] ?? lines.length);
    const end = `e:${lines.length}`;
    return route.fulfill({
      contentType: 'application/x-ndjson',
      headers: { 'X-Ledger-Next': end, 'X-Ledger-End': end },
      body: lines.slice(since).join(''),
    });
  };
  return { written, answer };
}

describe.skipIf(isMissing)('Live', () => {
  useBrowser();

  test('shows the figures that the camera tells', async () => {
    const page = await opened('live');
    for (const [testid, action] of [
      ['occupancy', 'get_occupancy_count'],
      ['building', 'get_total_occupancy'],
      ['crowd-2', 'get_crowd_2'],
      ['crowd-building', 'get_total_crowd'],
    ]) {
      await eventually(
        async () => [await page.getByTestId(testid).textContent(), await ask(page, action)],
        ([shown, told]) => shown === told,
      );
    }
    await expectText(page, 'status', kRuns); // whichever alerts who walks there raises
    // Somebody stands in the area now and then.
    await expectText(page, 'crowd-1', /^[1-9]\d*$/);
  });

  test('a follower that was not asked yet is said so', async () => {
    const panel =
      '<app><TotalOcc>4</TotalOcc><NameCam_0>Here</NameCam_0><NameCam_1>New</NameCam_1><AOICam_0>1</AOICam_0><AOICam_1>0</AOICam_1>' +
      '<ActiveCam_1>1</ActiveCam_1><StatusCam_0>Running</StatusCam_0><StatusCam_1>Unknown default status</StatusCam_1></app>';
    const page = await open({}, (one) =>
      one.route('**/*action=get_data_panel_info', (route) => route.fulfill({ contentType: 'text/xml', body: panel })),
    );
    await show(page, 'live');
    const status = page.getByTestId('cameras').locator('tbody tr').filter({ hasText: 'New' }).locator('.badge');
    await eventually(
      () => status.textContent(),
      (text) => text === 'not asked yet',
    );
    expect(await status.getAttribute('title')).toBe('Unknown default status');
    await page.getByRole('columnheader', { name: 'Last update' }).waitFor();
  });

  test.each([
    ['Occupancy event active', 'Alert: 52 inside (limit 50)'],
    ['Slow', 'Analysis too slow: may miss people'],
    ['Area 2 event active', 'Alert: area 2'],
    ['Running', 'Running'],
  ])('the status "%s" is said in words for people', async (status, words) => {
    const panel = `<app><TotalOcc>52</TotalOcc><Occupants>50</Occupants><NameCam_0>Here</NameCam_0><StatusCam_0>${status}</StatusCam_0></app>`;
    const page = await open({}, (one) =>
      one.route('**/*action=get_data_panel_info', (route) => route.fulfill({ contentType: 'text/xml', body: panel })),
    );
    await show(page, 'live');
    const badge = page.getByTestId('status').locator('.badge');
    await eventually(
      async () => [await badge.textContent(), await badge.getAttribute('title')].join('|'),
      (told) => told === `${words}|${status}`,
    );
  });

  test('a follower that does not answer has words and no count', async () => {
    const panel =
      '<app><TotalOcc>4</TotalOcc><NameCam_0>Here</NameCam_0><NameCam_1>Gone</NameCam_1><AOICam_0>1</AOICam_0><AOICam_1>-1</AOICam_1>' +
      '<ActiveCam_1>1</ActiveCam_1><StatusCam_0>Running</StatusCam_0><StatusCam_1>No connection error</StatusCam_1></app>';
    const page = await open({}, async (one) => {
      await one.route('**/*action=get_data_panel_info', (route) =>
        route.fulfill({ contentType: 'text/xml', body: panel }),
      );
      await one.route('**/*action=get_follower_ages', (route) =>
        route.fulfill({ contentType: 'text/plain', body: '-1,-1,-1,-1,-1,-1,-1,-1,-1,-1' }),
      );
    });
    await show(page, 'live');
    const row = page.getByTestId('cameras').locator('tbody tr').filter({ hasText: 'Gone' });
    await eventually(
      () => row.locator('td').allTextContents(),
      (cells) => cells.join('|') === 'No answer: check address, login and password|–|not yet',
    );
  });

  test('the age of a follower is that of its counts, which grow old while the camera answers', async () => {
    let ages = '2,75,600,-1,-1,-1,-1,-1,-1,-1';
    const numbers = [1, 2, 3, 4];
    const panel = `<app><TotalOcc>4</TotalOcc><NameCam_0>Here</NameCam_0>${numbers
      .map(
        (i) =>
          `<NameCam_${i}>F${i}</NameCam_${i}><AOICam_${i}>${i}</AOICam_${i}><ActiveCam_${i}>1</ActiveCam_${i}><StatusCam_${i}>Running</StatusCam_${i}>`,
      )
      .join('')}</app>`;
    const page = await open({}, async (one) => {
      await one.route('**/*action=get_data_panel_info', (route) =>
        route.fulfill({ contentType: 'text/xml', body: panel }),
      );
      await one.route('**/*action=get_follower_ages', (route) =>
        route.fulfill({ contentType: 'text/plain', body: ages }),
      );
    });
    await show(page, 'live');
    const told = async () =>
      (await page.getByTestId('cameras').locator('tbody tr').allInnerTexts()).slice(1).map((row) =>
        row
          .split(/\s*\t\s*|\n/)
          .slice(-2)
          .join(' '),
      );
    await eventually(told, (rows) => rows.join('|') === '1 now|2 75 s ago|3 10 min ago|– not yet');
    // Old counts are none of now, whatever the status says.
    const tones = () =>
      page
        .getByTestId('cameras')
        .locator('.badge')
        .evaluateAll((badges) => badges.map(({ classList }) => classList[1]));
    expect(await tones()).toEqual(['neutral', 'good', 'warn', 'warn', 'warn']);
    ages = '90,1,600,-1,-1,-1,-1,-1,-1,-1';
    await eventually(told, (rows) => rows.join('|') === '1 90 s ago|2 now|3 10 min ago|– not yet');
  });

  test('a clock of the camera that is wrong is said so', async () => {
    const page = await open({}, (one) =>
      one.route('**/*action=get_data_panel_info', (route) =>
        route.fulfill({
          headers: { Date: new Date(Date.now() - 7_200_000).toUTCString() },
          contentType: 'text/xml',
          body: '<app><NameCam_0>Here</NameCam_0><StatusCam_0>Running</StatusCam_0></app>',
        }),
      ),
    );
    await show(page, 'live');
    await page
      .getByTestId('clock')
      .filter({ hasText: /: it is (120 min|2 h) behind the clock of this device/ })
      .waitFor();
    await page.unroute('**/*action=get_data_panel_info');
    await page.getByTestId('clock').waitFor({ state: 'detached' });
  });

  test('a total that a follower is missing in is said so', async () => {
    const panel =
      '<app><TotalOcc>0</TotalOcc><NameCam_0>Here</NameCam_0><NameCam_1>New</NameCam_1><ActiveCam_1>1</ActiveCam_1>' +
      '<NameCam_2>Off</NameCam_2><ActiveCam_2>0</ActiveCam_2><StatusCam_0>Running</StatusCam_0></app>';
    const answers = { get_data_panel_info: panel, get_occupancy_count: '4', get_follower_ages: kNone.join() };
    const page = await open({}, async (one) => {
      for (const [action, body] of Object.entries(answers))
        await one.route(`**/*action=${action}`, (route) => route.fulfill({ contentType: 'text/plain', body }));
    });
    await show(page, 'live');
    await page.getByText('without 1 camera that has not answered yet').waitFor();
    await expectText(page, 'building', /^4$/);
    await expectText(page, 'ask-followers', /^Not all cameras are counted ?New has not told/);
    const sent = page.waitForRequest((request) => request.url().includes('action=use_followers'));
    await page.getByRole('button', { name: 'Ask the followers now' }).click();
    expect((await sent).method()).toBe('POST');
    await page.getByText('They are asked.').waitFor();
    await page.route('**/*action=get_follower_ages', (route) =>
      route.fulfill({ contentType: 'text/plain', body: ['1', ...kNone.slice(1)].join() }),
    );
    await expectText(page, 'building', /^0$/);
    expect(await page.getByText('has not answered yet').count()).toBe(0);
    expect(await page.getByTestId('ask-followers').count()).toBe(0);
  });

  test('where people are to be hidden, every tab shows the picture that hides them, and sizes say so', async () => {
    const asked: string[] = [];
    const changes = {
      AnonOverlaysOn: '1',
      SelectedAnonOverlay: '640x360',
      SelectedDetectionOverlay: '1280x720',
      DetectionOverlaysOn: '1',
    };
    let body = await ask(await opened('live'), 'get_all_parameters');
    for (const [tag, value] of Object.entries(changes))
      body = body.replace(new RegExp(`<${tag}>[^<]*</${tag}>`), `<${tag}>${value}</${tag}>`);
    const page = await open({}, async (one) => {
      await one.route('**/*action=get_all_parameters', (route) => route.fulfill({ contentType: 'text/xml', body }));
      await one.route('**/live/video.mjpg*', (route) => {
        asked.push(new URL(route.request().url()).searchParams.get('resolution')!);
        return route.fulfill({ contentType: 'image/jpeg', body: kJpeg });
      });
    });
    for (const tab of ['live', 'areas'] as const) {
      asked.splice(0);
      await show(page, tab);
      await eventually(
        async () => asked.length,
        (count) => count > 0,
      );
      expect([tab, ...new Set(asked)]).toEqual([tab, '640x360']);
    }
    await show(page, 'live');
    const sizes = page.getByLabel('Picture size').locator('option');
    await eventually(
      () => sizes.allTextContents(),
      (names) => names.includes('640 × 360 (people are hidden)') && names.includes('1280 × 720 (people are seen)'),
    );
  });

  test('what is not saved yet changes nothing that is told of the camera', async () => {
    const page = await opened('live');
    await store(page, { Detection2_Active: '0', RepInt: '1' });
    await reload(page);
    await page
      .locator('dt')
      .filter({ hasText: /^Area 2.*off/ })
      .waitFor();
    await page.evaluate(() => (location.hash = '#/areas'));
    await page
      .getByRole('button', { name: /^Area 2/ })
      .first()
      .click();
    await page.getByLabel('Area 2 in use').check();
    await page.evaluate(() => (location.hash = '#/cameras'));
    await page.getByLabel('Report period').fill('7');
    await page.evaluate(() => (location.hash = '#/live'));
    await page
      .locator('dt')
      .filter({ hasText: /^Area 2.*off/ })
      .waitFor();
  });

  test('shows what the camera has counted since midnight, and asks again when somebody comes', async () => {
    const { written, answer } = aLedger();
    let count = 7;
    const page = await open({}, async (one) => {
      await one.route('**/*action=get_ledger&*', answer);
      await one.route('**/*action=get_counts&from=*&step=day&by=entrance,direction', (route) =>
        route.fulfill({
          contentType: 'application/json',
          body: JSON.stringify({
            rows: [
              { counts: [{ entrance: 1, direction: 'in', count: 900 }] },
              {
                counts: [
                  { entrance: 1, direction: 'in', count: count++ },
                  { entrance: 3, direction: 'out', count: 2 },
                ],
              },
            ],
          }),
        }),
      );
    });
    await show(page, 'live');
    const today = async () => (await page.locator('.passages tbody tr').allInnerTexts()).map((row) => row.split(/\s+/));
    await eventually(today, (rows) =>
      rows.join('|').endsWith('Entrance,1,0,0,7,0|Entrance,2,0,0,0,0|Entrance,3,0,0,0,2'),
    );
    written('in', 1);
    await eventually(today, (rows) => rows[0].join() === 'Entrance,1,1,0,8,0');
  });

  test('says that today is being asked for, or why it cannot be', async () => {
    let go = () => {};
    const held = new Promise<void>((resolve) => (go = resolve));
    const page = await open({}, (one) =>
      one.context().route('**/*action=get_counts&*', async (route) => {
        await held;
        await route.fulfill({ status: 503 });
      }),
    );
    await show(page, 'live');
    const passages = page.locator('.passages');
    await passages.getByText('Asking for the counts of today …').waitFor();
    go();
    await passages.getByText(/the camera is restarting\./).waitFor();
  });

  test('fetches no whole report', async () => {
    const page = await open({}, (one) => one.clock.install());
    const asked: string[] = [];
    page.on('request', (request) => asked.push(request.url()));
    await show(page, 'live');
    await page.locator('.passages tbody tr').first().waitFor();
    for (let minute = 0; minute < 16; ++minute) await page.clock.runFor(60_000);
    expect(asked.filter((url) => url.includes('get_counts'))).not.toEqual([]);
    expect(asked.filter((url) => url.includes('get_occupancy_csv'))).toEqual([]);
  });

  test('tells who comes and goes as it happens, and through which entrance', async () => {
    const { written, answer } = aLedger();
    const page = await open({}, (one) => one.route('**/*action=get_ledger&*', answer));
    await show(page, 'live');
    const rows = page.locator('.passages tbody tr');
    const since = async () =>
      (await rows.allInnerTexts())
        .map((row) =>
          row
            .split(/\s*\t\s*|\n/)
            .slice(0, 3)
            .join(' '),
        )
        .join('|');
    await eventually(since, (sums) => sums === 'Entrance 1 0 0|Entrance 2 0 0');
    for (const [direction, entrance] of [
      ['out', 1],
      ['in', 2],
      ['in', 2],
      ['out', 3],
    ] as const)
      written(direction, entrance);
    await eventually(since, (sums) => sums === 'Entrance 1 0 1|Entrance 2 2 0|Entrance 3 0 1');
    await expectText(page, 'came-in', /^2$/);
    await expectText(page, 'went-out', /^2$/);
    await page.getByText('1 person came in through entrance 2').first().waitFor();
    await page.getByText('1 person went out through entrance 1').waitFor();
  });

  test('who comes back to the page is shown nothing of before as if it were so now', async () => {
    const { written, answer } = aLedger();
    const page = await open({}, async (one) => {
      await one.clock.install();
      await one.route('**/*action=get_ledger&*', answer);
      await one.route('**/live/video.mjpg*', (route) => route.fulfill({ contentType: 'image/jpeg', body: kJpeg }));
    });
    await show(page, 'live');
    const image = page.getByRole('img', { name: 'Live picture' });
    await eventually(
      () => image.isVisible(),
      (visible) => visible,
    );
    await expectText(page, 'came-in', /^0$/);
    const turn = (hidden: boolean) =>
      page.evaluate((value) => {
        Object.defineProperty(document, 'hidden', { value, configurable: true });
        document.dispatchEvent(new Event('visibilitychange'));
      }, hidden);
    await turn(true);
    await page.clock.runFor(60_000);
    const time = new Date(2026, 2, 31, 10, 14, 5);
    written('in', 1, time);
    written('in', 1, time);
    let go = () => {};
    const held = new Promise<void>((resolve) => (go = resolve));
    await page.route('**/icon.svg', async (route) => {
      await held;
      await route.continue();
    });
    await turn(false);
    await expectText(page, 'status', /^Asking the camera …$/);
    await page.getByText('Fetching the picture …').waitFor();
    expect(await image.isVisible()).toBe(false);
    await expectText(page, 'occupancy', /^–$/);
    go();
    await expectText(page, 'status', kRuns);
    await page
      .locator('.ticker')
      .getByText(/31 Mar 2026, 10:14:05\s+1 person came in through entrance 1$/)
      .first()
      .waitFor();
    await expectText(page, 'came-in', /^2$/);
    await eventually(
      () => image.isVisible(),
      (visible) => visible,
    );
  });

  test.each(['came in', 'went out'])('tells of those that the camera really sees: %s', async (what) => {
    const page = await opened('live');
    await expectText(page, what === 'came in' ? 'came-in' : 'went-out', /^[1-9]/);
    await page
      .getByText(new RegExp(`1 [a-z]+ ${what} through entrance [12]`))
      .first()
      .waitFor();
  });

  test('offers to go on with what was inside before a restart, once', async () => {
    const start = new Date(Date.now() - 60_000);
    const page = await open({}, async (one) => {
      await one.route('**/*action=occupancy_before', (route) =>
        route.fulfill({
          contentType: 'application/json',
          body: JSON.stringify({
            ended: 'killed',
            at: new Date(start.getTime() - 41_000).toISOString(),
            gap: 41,
            occupancy: 160,
            lost: [{ entrance: 1, direction: 'in', class: 'Person', count: 3 }],
          }),
        }),
      );
      // From then on the camera's own ledger tells: the page asks again whenever an answer was missing in between.
      let isSet = false;
      one.on('response', (response) => (isSet ||= response.url().includes('action=correct_occupancy')));
      await one.route('**/*action=get_ledger&kinds=start*', (route) =>
        isSet
          ? route.continue()
          : route.fulfill({ contentType: 'application/x-ndjson', body: '{"kind":"start","occupancy":0}\n' }),
      );
      await one.route('**/*action=get_occupancy_count', (route) =>
        route.fulfill({ contentType: 'text/plain', body: '4' }),
      );
    });
    await show(page, 'live');
    const offer = page.getByTestId('restart');
    await offer.getByText(/ Before, it had counted 160 inside\.$/).waitFor();
    await offer.getByText('3 in and 0 out just before the restart are missing in the reports.').waitFor();
    await offer.getByRole('button', { name: 'Set to 164' }).click();
    await page.getByText('The count has been set.').waitFor();
    expect(await offer.count()).toBe(0);
    await page.unroute('**/*action=get_occupancy_count');
    await expectText(page, 'occupancy', /^16\d$/);
    const corrected = (await ask(page, 'get_ledger&kinds=corrected')).trim().split('\n').at(-1)!;
    expect(JSON.parse(corrected)).toMatchObject({ user: 'operator', to: 164, remark: 'as before the restart' });
    await ask(page, 'reset_occupancy');
    // Said once on the camera: nobody is offered it any more.
    const settled = page.waitForResponse(/action=get_ledger&kinds=start/);
    await reload(page);
    expect(await (await settled).text()).toContain('"kind":"corrected"');
    await expectText(page, 'occupancy', /\d/);
    expect(await offer.count()).toBe(0);
  });

  test('a reset asks first', async () => {
    const page = await opened('live');
    const asked: string[] = [];
    page.on('request', (request) => asked.push(request.url()));
    const figure = async (testid: string) => Number(await page.getByTestId(testid).textContent());
    // People come in all the time: what tells a reset is that there are fewer.
    const here = await eventually(
      () => figure('occupancy'),
      (count) => count >= 2,
    );
    await page.getByRole('button', { name: 'Reset this camera' }).click();
    await page.getByRole('dialog').getByRole('button', { name: 'Cancel' }).click();
    await page.getByRole('dialog').waitFor({ state: 'detached' });
    expect(asked.filter((url) => url.includes('action=reset'))).toEqual([]);

    await page.getByRole('button', { name: 'Reset this camera' }).click();
    await page.getByRole('dialog').waitFor();
    await page.keyboard.press('Escape');
    await page.getByRole('dialog').waitFor({ state: 'detached' });
    expect(asked.filter((url) => url.includes('action=reset'))).toEqual([]);

    await page.getByRole('button', { name: 'Reset this camera' }).click();
    await page.getByRole('dialog').getByRole('button', { name: 'Reset this camera' }).click();
    await expectText(page, 'reset-said', /has been reset/);
    await eventually(
      () => figure('occupancy'),
      (count) => count < here,
    );
    const before = await eventually(
      () => figure('building'),
      (count) => count >= 3,
    );
    await page.getByRole('button', { name: 'Reset the building' }).click();
    await page.getByRole('dialog').getByRole('button', { name: 'Reset the building' }).click();
    await expectText(page, 'reset-said', /has been reset/);
    await eventually(
      () => figure('building'),
      (count) => count < before,
    );
    await expectText(page, 'beginning', /when its count was set to 0/);
    expect(asked.filter((url) => /action=reset_(total_)?occupancy$/.test(url)).length).toBe(2);
    expect(await ask(page, 'get_logfile_as_plain_text')).toContain('Total occupancy reset.');
  });

  test.each([
    ['Any area', 'Breached'],
    ['Area 1', 'Area1Alert'],
    ['Area 2', 'Area2Alert'],
    ['Area 3', 'Area3Alert'],
    ['Too many inside', 'OccupancyAlert'],
  ])('the alert "%s" is raised and cleared by hand', async (name, topic) => {
    const page = await opened('advanced');
    const file = join(building!.state, 'events.jsonl');
    // A camera that has just been started has told nothing yet.
    const events = () =>
      (existsSync(file) ? readFileSync(file, 'utf8') : '')
        .split('\n')
        .filter((line) => line.includes(topic))
        .map((line) => JSON.parse(line).active as boolean);
    const before = events().length;
    const asked: string[] = [];
    page.on('request', (request) => asked.push(request.url()));
    const raise = page.getByRole('button', { name: `Raise a test alert: ${name}` });
    const question = page.getByRole('dialog', { name: `Raise a test alert: ${name}?` });
    await raise.click();
    await question.getByRole('button', { name: 'Cancel' }).click();
    await question.waitFor({ state: 'detached' });
    expect(asked.filter((url) => url.includes('manual_'))).toEqual([]);
    await raise.click();
    await question.getByRole('button', { name: 'Raise' }).click();
    await expectText(page, 'alert-said', new RegExp(`^Alert raised: ${name}`));
    const go = (tab: string) => page.evaluate((one) => (location.hash = `#/${one}`), tab);
    const listed = page
      .getByTestId('alerts')
      .locator('li')
      .filter({ hasText: `${name} (test, raised by hand)` })
      .first();
    await go('live');
    await listed.filter({ hasText: 'since then' }).waitFor();
    await go('advanced');
    await page.getByRole('button', { name: `Clear the alert: ${name}` }).click();
    await expectText(page, 'alert-said', new RegExp(`^Alert cleared: ${name}`));
    await go('live');
    await listed.filter({ hasText: /for \d+ (s|min)/ }).waitFor();
    // The camera's own rules raise and clear alerts, too.
    await eventually(
      async () => events().slice(before),
      (states) => states.includes(true) && states.includes(false),
    );
  });

  test('shows the live picture as a stream', async () => {
    const asked: string[] = [];
    const page = await open({}, (one) =>
      one.route('**/live/video.mjpg*', (route) => {
        asked.push(route.request().url());
        return route.fulfill({ contentType: 'image/jpeg', body: kJpeg });
      }),
    );
    await show(page, 'live');
    const image = page.getByRole('img', { name: 'Live picture' });
    await eventually(
      () => image.evaluate((element: HTMLImageElement) => element.naturalWidth),
      (width) => width === 1,
    );
    const drawn = await stored(page, 'SelectedDetectionOverlay');
    expect(asked.filter((url) => !url.includes(`resolution=${drawn}`))).toEqual([]);
    await eventually(
      () => page.getByText('No picture').count(),
      (count) => count === 0,
    );
    await page.getByLabel('Picture size').selectOption('640x360');
    await eventually(
      async () => asked.at(-1)!,
      (url) => url.includes('resolution=640x360'),
    );
    await page.getByLabel('Picture size').selectOption('Chosen by the camera');
    await eventually(
      async () => asked.at(-1)!,
      (url) => !url.includes('resolution='),
    );
  });

  test('shows what the camera sees: the real stream moves', async () => {
    const page = await opened('live');
    const image = page.getByRole('img', { name: 'Live picture' });
    const sources = new Set<string>();
    await eventually(
      async () => sources.add((await image.getAttribute('src'))!).size,
      (count) => count > 3,
    );
    await eventually(
      () => image.evaluate((element: HTMLImageElement) => element.naturalWidth),
      (width) => width >= 640,
    );
  });

  test('a stream that stands still is said to, and is begun anew', async () => {
    // Shows one picture each time, and then goes silent.
    let begun = 0;
    const silent = createServer((_, response) => {
      ++begun;
      response.writeHead(200, { 'Content-Type': 'multipart/x-mixed-replace; boundary=edge' });
      response.write(`--edge\r\nContent-Type: image/jpeg\r\nContent-Length: ${kJpeg.length}\r\n\r\n`);
      response.write(kJpeg);
    }).listen(0, '127.0.0.1');
    await once(silent, 'listening');
    const { port } = silent.address() as AddressInfo;
    const page = await open({}, async (one) => {
      await one.clock.install();
      await one.route('**/live/video.mjpg*', (route) => route.continue({ url: `http://127.0.0.1:${port}/` }));
    });
    await show(page, 'live');
    await eventually(
      () => page.getByRole('img', { name: 'Live picture' }).isVisible(),
      (visible) => visible,
    );
    await page.clock.fastForward(kStill);
    await page.getByText(/The picture stood still/).waitFor();
    expect(await page.getByRole('img', { name: 'Live picture' }).isVisible()).toBe(false);
    await page.clock.fastForward(kStill);
    await eventually(
      async () => begun,
      (count) => count > 1,
    );
    await eventually(
      () => page.getByRole('img', { name: 'Live picture' }).isVisible(),
      (visible) => visible,
    );
    silent.closeAllConnections();
    silent.close();
  });

  test.each(['video.mjpg', 'image.jpg'])(
    'an answer that is no picture is said to be none, and is not asked for without end: %s',
    async (which) => {
      let asked = 0;
      const page = await open({}, async (one) => {
        await one.clock.install();
        await one.route('**/live/**', (route) => route.fulfill({ status: 404 }));
        await one.route(`**/live/${which}*`, (route) => {
          ++asked;
          return route.fulfill({ contentType: 'image/jpeg', body: '<h1>no picture</h1>' });
        });
      });
      await show(page, 'live');
      await page.getByText('What the camera sends is no picture').waitFor();
      for (const times of [1, 2, 3]) {
        await eventually(
          async () => asked,
          (count) => count === times,
        );
        await page.clock.runFor(3000);
        expect(asked).toBe(times);
        await page.clock.runFor(2000);
      }
    },
  );

  test('shows single pictures where no stream comes', async () => {
    const page = await open({}, async (one) => {
      await one.route('**/live/video.mjpg*', (route) => route.fulfill({ status: 404 }));
      await one.route('**/live/image.jpg*', (route) => route.fulfill({ contentType: 'image/jpeg', body: kJpeg }));
    });
    await show(page, 'live');
    await eventually(
      () => page.getByRole('img', { name: 'Live picture' }).isVisible(),
      (visible) => visible,
    );
  });

  test.each([
    [404, 'text/html', '<h1>404</h1>', 'This camera offers no live picture here.'],
    [
      403,
      'text/plain',
      'the anonymised stream is never shown without its overlays\n',
      'the anonymised stream is never shown without its overlays',
    ],
    [503, 'text/plain', '', 'The camera has no picture at the moment.'],
    [503, 'text/plain', '<b>the source is lost</b>', '<b>the source is lost</b>'],
  ])('says why there is no picture: %d %s %j', async (status, contentType, body, words) => {
    const page = await open({}, (one) =>
      one.route('**/live/**', (route) => route.fulfill({ status, contentType, body })),
    );
    await show(page, 'live');
    await page.getByText('No picture', { exact: true }).waitFor();
    await page.getByText(words).waitFor();
  });

  // Last, for a leader asks its followers for their status once a minute.
  test('shows each follower with its status, crowd and the age of its answer', async () => {
    const page = await opened('live');
    const rows = page.getByTestId('cameras').locator('tbody tr');
    await eventually(
      () => rows.count(),
      (count) => count === 3,
    );
    for (const follower of ['Follower 1', 'Follower 2']) {
      const row = rows.filter({ hasText: follower });
      await row.filter({ hasText: kRuns }).waitFor();
      await eventually(
        async () => row.locator('td').allTextContents(),
        ([, crowd, age]) => /^\d+$/.test(crowd) && age === 'now',
      );
    }
  });
});

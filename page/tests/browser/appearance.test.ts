import { createRequire } from 'node:module';
import { readFileSync } from 'node:fs';
import { join } from 'node:path';
import { Page } from 'playwright-core';
import { describe, expect, test } from 'vitest';
import {
  eventually,
  expectText,
  isMissing,
  open,
  opened,
  post,
  reload,
  screenshots,
  show,
  store,
  stored,
  tabs,
  useBrowser,
} from './browser';

const kAxe = createRequire(import.meta.url).resolve('axe-core/axe.min.js');

interface Violation {
  id: string;
  nodes: { html: string; failureSummary: string }[];
}

async function violations(page: Page): Promise<string[]> {
  // By evaluation, which the page's policy does not apply to.
  await page.evaluate(readFileSync(kAxe, 'utf8'));
  const found = await page.evaluate(async () => {
    const axe = (window as unknown as { axe: { run: (options: object) => Promise<{ violations: Violation[] }> } }).axe;
    return (await axe.run({ runOnly: ['wcag2a', 'wcag2aa', 'wcag21a', 'wcag21aa', 'wcag22aa', 'best-practice'] }))
      .violations;
  });
  return found.flatMap((violation) =>
    violation.nodes.map((node) => `${violation.id}: ${node.html}\n${node.failureSummary}`),
  );
}

const devices = { desktop: { width: 1360, height: 850 }, phone: { width: 390, height: 844 } };
const schemes = ['light', 'dark'] as const;
const looks = Object.keys(devices).flatMap((device) =>
  schemes.map((scheme) => [device as keyof typeof devices, scheme] as const),
);

/** Opens what a tab has folded away, and waits for what it fetches. */
async function unfold(page: Page, tab: (typeof tabs)[number]): Promise<void> {
  if (tab === 'live')
    await eventually(
      () => page.getByTestId('occupancy').textContent(),
      (text) => text !== '–',
    );
  if (tab === 'live' || tab === 'areas')
    await eventually(
      () => page.getByText('Fetching the picture').count(),
      (count) => count === 0,
    );
  if (tab === 'cameras') await page.getByTestId('follower-3').getByRole('button', { name: 'Set up' }).click();
  if (tab === 'advanced') {
    // The log may just have been cleared.
    for (const line of ['one line', 'another line'])
      await post(
        page,
        'post_submit_log',
        `<root><log_severity>info</log_severity><log_entry>${line}</log_entry></root>`,
      );
    await page.getByRole('button', { name: 'View Log' }).click();
    await page.getByTestId('log').locator('tr').nth(1).waitFor();
  }
  if (tab === 'reports') {
    await eventually(
      async () => {
        await page.getByRole('button', { name: 'Read again' }).click();
        return page.getByTestId('report').count();
      },
      (count) => count === 1,
    );
  }
}

/** A camera with this status that has raised these alerts. */
async function tells(page: Page, status: string, alerts: string[]): Promise<void> {
  const panel = `<app><NameCam_0>Entrance hall</NameCam_0><StatusCam_0>${status}</StatusCam_0></app>`;
  const lines = alerts.map((name, i) => ({
    seq: i + 1,
    epoch: 'e',
    t: new Date().toISOString(),
    kind: 'alert',
    alert: `Ostrel Senvo ${name}`,
    active: true,
  }));
  const end = `e:${lines.length}`;
  await page.route('**/*action=get_data_panel_info', (route) =>
    route.fulfill({ contentType: 'text/xml', body: panel }),
  );
  await page.route('**/*action=get_ledger&*', (route) =>
    route.fulfill({
      contentType: 'application/x-ndjson',
      headers: { 'X-Ledger-Next': end, 'X-Ledger-End': end },
      body: lines.map((line) => `${JSON.stringify(line)}\n`).join(''),
    }),
  );
}

/** As much as the bar at the top ever has to tell. */
const muchToTell = (page: Page) =>
  tells(page, 'Slow', ['Breached', 'Area 1 Alert', 'Area 2 Alert', 'Area 3 Alert', 'Occupancy Alert']);

/** Does something before the whole page, with its bars once and nothing behind them: what is half behind one is no fault. */
async function whole<T>(page: Page, task: () => Promise<T>): Promise<T> {
  const size = page.viewportSize()!;
  const height = await page.evaluate(() => {
    scrollTo(0, 0);
    return document.documentElement.scrollHeight;
  });
  await page.setViewportSize({ width: size.width, height: Math.max(size.height, height) });
  const result = await task();
  await page.setViewportSize(size);
  return result;
}

describe.skipIf(isMissing)('Appearance', () => {
  useBrowser();

  test.each(looks)('every tab is clean and fits: %s, %s', async (device, scheme) => {
    const page = await opened('live', { viewport: devices[device], colorScheme: scheme, hasTouch: device === 'phone' });
    const found: string[] = [];
    for (const tab of tabs) {
      await show(page, tab);
      await unfold(page, tab);
      const wide = await page.evaluate(
        () => document.documentElement.scrollWidth - document.documentElement.clientWidth,
      );
      if (wide > 0) found.push(`${tab} is ${wide} pixels too wide`);
      await whole(page, async () => {
        await page.screenshot({ path: join(screenshots, `${tab}-${device}-${scheme}.png`) });
        found.push(...(await violations(page)).map((violation) => `${tab}: ${violation}`));
      });
    }
    expect(found, found.join('\n')).toEqual([]);
  });

  test.each(looks)('questions, errors and warnings are clean, too: %s, %s', async (device, scheme) => {
    const page = await opened('live', { viewport: devices[device], colorScheme: scheme, hasTouch: device === 'phone' });
    const found: string[] = [];
    const look = async (what: string) => {
      await page.screenshot({ path: join(screenshots, `${what}-${device}-${scheme}.png`) });
      found.push(...(await whole(page, () => violations(page))).map((violation) => `${what}: ${violation}`));
    };
    const go = (tab: string) => page.evaluate((name) => (location.hash = `#/${name}`), tab);
    await page.getByRole('button', { name: 'Reset the building' }).click();
    await look('question');
    await page.keyboard.press('Escape');

    await go('detection');
    await page.locator('input[name=Sensitivity]').fill('7');
    await page.locator('input[name=Occupants]').fill('many');
    await expectText(page, 'save-state', /2 values to correct first/);
    await look('errors');
    await page.locator('input[name=Sensitivity]').fill('0.5');
    await page.locator('input[name=Occupants]').fill('60');

    await go('areas');
    await page
      .getByRole('button', { name: /^Entrance 1/ })
      .first()
      .click();
    const corner = page.getByTestId('area-Entrance1').locator('.corner').nth(1);
    await corner.focus();
    for (let i = 0; i < 40; ++i) await page.keyboard.press('Shift+ArrowLeft');
    await page.getByTestId('warnings').locator('li').first().waitFor();
    await look('warnings');
    // Axe judges neither single characters nor a colour upon itself: all have that of the chosen button's own text.
    const chosen = page.locator('.segments button[aria-pressed=true]');
    const lookAtChosen = async (text: RegExp) => {
      expect(await chosen.innerText()).toMatch(text);
      const colours = await chosen.evaluate((button) =>
        [button, ...button.children].map((part) => getComputedStyle(part).color),
      );
      if (new Set(colours).size > 1)
        found.push(`the chosen area "${await chosen.innerText()}" has the colours ${colours}`);
    };
    await lookAtChosen(/^1\s•\s!$/);
    await page.getByRole('button', { name: /^Exclusion 2, off/ }).click();
    await lookAtChosen(/^2\soff$/);
    await look('chosen-off');

    await go('advanced');
    await page.getByLabel('Hide people', { exact: true }).check();
    await page.locator('select[name=SelectedAnonOverlay]').selectOption('1280x720');
    await page.locator('.warning').filter({ hasText: 'Nobody is hidden' }).scrollIntoViewIfNeeded();
    await look('hiding');
    await page.getByRole('button', { name: 'Clear log' }).click();
    await look('clearing');
    await page.keyboard.press('Escape');

    await page.route('**/*action=set_post_parameters', (route) => route.fulfill({ status: 500 }));
    await page.getByRole('button', { name: 'Save', exact: true }).click();
    await page.getByRole('alert').filter({ hasText: 'Not saved' }).waitFor();
    await look('not-saved');
    await page.unroute('**/*action=set_post_parameters');
    const held = await stored(page, 'VerboseLog');
    await store(page, { VerboseLog: held === '1' ? '0' : '1' });
    await page.getByRole('button', { name: 'Save', exact: true }).click();
    await page.getByRole('dialog').waitFor();
    await look('conflict');
    await page.getByRole('dialog').getByRole('button', { name: 'Take theirs' }).click();
    await store(page, { VerboseLog: held });

    await page.route('**/*action=*', (route) => route.fulfill({ status: 503 }));
    await page.getByRole('alert').filter({ hasText: 'The camera is restarting' }).waitFor();
    await go('live');
    await page.locator('.no-picture').waitFor();
    await look('restarting');
    expect(found, found.join('\n')).toEqual([]);
  });

  test.each(looks)('charts of every kind are clean: %s, %s', async (device, scheme) => {
    const day = (i: number) => new Date(Date.UTC(2026, 2, 1, 0, 15 * i)).toISOString().slice(0, 19).replace('T', ' ');
    const figures = (i: number) =>
      [
        Math.sin(i / 15) * 12 + 14,
        Math.sin(i / 9) * 7 + 9,
        Math.max(0, Math.sin(i / 15) * 4),
        Math.max(0, Math.cos(i / 15) * 3),
      ].map(Math.round);
    const csv = `Date,Occup_Person_Lobby,Occup_Person_Yard,Entrance1_Entrances_Person_Lobby,Entrance2_Entrances_Person_Lobby\n${Array.from({ length: 96 * 31 }, (_, i) => `${day(i)},${figures(i).join(',')}`).join('\n')}\n`;
    const page = await open({ viewport: devices[device], colorScheme: scheme, hasTouch: device === 'phone' }, (one) =>
      one
        .context()
        .route('**/*action=get_occupancy_csv', (route) => route.fulfill({ contentType: 'text/csv', body: csv })),
    );
    await show(page, 'reports');
    const found: string[] = [];
    for (const [name, measure, split, span] of [
      ['day', 'Inside', 'camera', 'a day'],
      ['week', 'Entries', 'area or entrance', 'a week'],
      ['month', 'Entries', 'all together', 'a month'],
    ] as const) {
      await page.getByLabel('Show', { exact: true }).selectOption(measure);
      await page.getByLabel('By', { exact: true }).selectOption(split);
      await page.getByLabel('Over', { exact: true }).selectOption(span);
      await page.locator('.chart canvas').waitFor();
      found.push(...(await whole(page, () => violations(page))).map((violation) => `${name}: ${violation}`));
      await page.locator('.chart').scrollIntoViewIfNeeded();
      await page.screenshot({ path: join(screenshots, `chart-${name}-${device}-${scheme}.png`) });
    }
    expect(found, found.join('\n')).toEqual([]);
  });

  test('on a phone badges break between words alone, and a long name makes nothing wider than the screen', async () => {
    const name = 'EntranceHallOfTheSouthernBuildingFirstFloorBehindTheStairs';
    const panel =
      `<app><NameCam_0>${name}</NameCam_0><NameCam_1>${name}</NameCam_1><ActiveCam_1>1</ActiveCam_1>` +
      '<StatusCam_0>Slow</StatusCam_0><StatusCam_1>No connection error</StatusCam_1></app>';
    const csv = `Date,Occup_Person_${name},Occup_Person_Yard\n2026-03-01 10:00:00,1,2\n`;
    const page = await open({ viewport: devices.phone, hasTouch: true }, async (one) => {
      await muchToTell(one); // more than the bar at the top shows
      // A follower that has told nothing yet is asked for by its name.
      const answers = { get_data_panel_info: panel, get_occupancy_csv: csv, get_follower_ages: '-1' };
      for (const [action, body] of Object.entries(answers))
        await one.route(`**/*action=${action}`, (asked) => asked.fulfill({ contentType: 'text/plain', body }));
    });
    const tooWide = () =>
      page.evaluate(() => {
        const { clientWidth, scrollWidth } = document.documentElement;
        const out = [...document.querySelectorAll('.top *, .filters select')].filter(
          (element) => element.getBoundingClientRect().right > clientWidth,
        );
        return [scrollWidth - clientWidth, out.map((element) => element.outerHTML)];
      });
    await show(page, 'live');
    await page.getByTestId('cameras').getByText('No answer: check address, login and password').waitFor();
    await page.getByTestId('ask-followers').waitFor();
    await page.getByTestId('alert').waitFor();
    const broken = await page.locator('.badge').evaluateAll((badges) =>
      badges.flatMap((badge) => {
        const text = badge.firstChild as Text;
        return [...text.data.matchAll(/\S+/g)]
          .filter(({ index, 0: word }) => {
            const range = document.createRange();
            range.setStart(text, index);
            range.setEnd(text, index + word.length);
            // Two boxes in one line are those of a text that is cut off there.
            return new Set([...range.getClientRects()].map(({ top }) => Math.round(top))).size > 1;
          })
          .map(([word]) => word);
      }),
    );
    expect([broken, await tooWide()]).toEqual([[], [0, []]]);
    await show(page, 'reports');
    await page.getByTestId('report').waitFor();
    expect(await tooWide()).toEqual([0, []]);
  });

  test.each([1360, 900, 390, 320])(
    'the bar at the top is as high, and the page as wide, whatever there is to tell: %d pixels',
    async (width) => {
      const viewport = { width, height: 700 };
      const size = (page: Page) =>
        page.evaluate(() => [
          document.querySelector('.top')!.getBoundingClientRect().height,
          document.documentElement.scrollWidth,
        ]);
      const calm = await opened('cameras', { viewport }, (page) => tells(page, 'Running', []));
      await expectText(calm, 'status', /^Running$/);
      const busy = await opened('cameras', { viewport }, muchToTell);
      await busy.getByTestId('alert').waitFor();
      const [height] = await size(calm);
      expect(await size(busy)).toEqual([height, width]);
      await busy.screenshot({ path: join(screenshots, `top-${width}.png`) });
    },
  );

  test('a page that is read from the right is seen whole', async () => {
    const page = await opened('live');
    await page.evaluate(() => (document.documentElement.dir = 'rtl'));
    const found: unknown[] = [];
    for (const tab of tabs) {
      await page.evaluate((name) => (location.hash = `#/${name}`), tab);
      await page.getByRole('heading', { level: 1, name: new RegExp(tab, 'i') }).waitFor();
      found.push(
        await page.evaluate(() => {
          const { scrollWidth, clientWidth } = document.documentElement;
          const heading = document.querySelector('h1')!;
          const tabs = document.querySelector('.tabs')!.getBoundingClientRect();
          return [scrollWidth - clientWidth, tabs.left > heading.getBoundingClientRect().left];
        }),
      );
    }
    expect(found).toEqual(tabs.map(() => [0, true]));
  });

  test('on paper there is what is read, dark on white, and nothing to press', async () => {
    const csv = 'Date,Occup_Person_Lobby\n2026-03-01 10:00:00,1\n';
    const page = await opened('live', { colorScheme: 'dark' }, (one) =>
      one
        .context()
        .route('**/*action=get_occupancy_csv', (route) => route.fulfill({ contentType: 'text/csv', body: csv })),
    );
    await page.emulateMedia({ media: 'print', colorScheme: 'dark' });
    for (const tab of ['live', 'reports'] as const) {
      await page.evaluate((name) => (location.hash = `#/${name}`), tab);
      await page.getByRole('heading', { level: 1, name: new RegExp(tab, 'i') }).waitFor();
      if (tab === 'reports') await page.getByTestId('report').waitFor();
      const seen = await page.evaluate(() => ({
        ground: getComputedStyle(document.body).backgroundColor,
        text: getComputedStyle(document.body).color,
        pressable: [...document.querySelectorAll('button, select, nav, a')]
          .filter((element) => element.checkVisibility())
          .map((element) => element.outerHTML),
      }));
      expect(seen).toEqual({ ground: 'rgb(255, 255, 255)', text: 'rgb(21, 32, 42)', pressable: [] });
      await page.screenshot({ path: join(screenshots, `${tab}-print.png`), fullPage: true });
    }
  });

  test('what is chosen is seen in the colours of the device', async () => {
    const page = await opened('areas');
    await page.emulateMedia({ forcedColors: 'active' });
    await page.locator('.segments button').first().waitFor();
    const colours = await page
      .locator('.segments button')
      .evaluateAll((buttons) =>
        buttons.map((button) => [button.getAttribute('aria-pressed'), getComputedStyle(button).backgroundColor]),
      );
    const of = (pressed: string) => new Set(colours.filter(([is]) => is === pressed).map(([, colour]) => colour));
    expect([...of('true')].filter((colour) => of('false').has(colour))).toEqual([]);
    expect(of('true').size).toBe(1);
  });

  test('what has the focus is not hidden behind the bars', async () => {
    for (const [device, size] of Object.entries(devices)) {
      const page = await opened('cameras', { viewport: size }, muchToTell);
      await page.getByTestId('alert').waitFor();
      await page.locator('input[name=RepInt]').fill('9');
      await page.locator('input[name=CamName]').focus();
      const hidden: string[] = [];
      for (let i = 0; i < 48; ++i) {
        await page.keyboard.press(i < 24 ? 'Tab' : 'Shift+Tab');
        const covered = await page.evaluate(() => {
          const { activeElement } = document;
          if (!activeElement || activeElement.closest('.save-bar, .tabs, .top')) return '';
          const frame = activeElement.getBoundingClientRect();
          const [top, bottom] = [
            document.querySelector('.top')!.getBoundingClientRect().bottom,
            document.querySelector('.save-bar')!.getBoundingClientRect().top,
          ];
          return frame.top < top || frame.bottom > bottom
            ? `${activeElement.outerHTML.slice(0, 80)}: ${frame.top}..${frame.bottom}`
            : '';
        });
        if (covered) hidden.push(`${device}: ${covered}`);
      }
      expect(hidden).toEqual([]);
    }
  });

  test('the page says its language, and hints for keys only where there are some', async () => {
    const desk = await opened('areas');
    expect(await desk.evaluate(() => document.documentElement.lang)).toBe('en');
    await desk.getByText('With the keyboard').waitFor();
    const phone = await opened('areas', { viewport: devices.phone, hasTouch: true, isMobile: true });
    await phone.getByText('Drag corners').waitFor();
    expect(await phone.getByText('With the keyboard').isVisible()).toBe(false);
  });

  test('the content is reached past the tabs', async () => {
    const page = await opened('live');
    await page.keyboard.press('Tab');
    await page.keyboard.press('Enter');
    expect(await page.evaluate(() => document.activeElement!.id)).toBe('content');
    expect(new URL(page.url()).hash).toBe('#/live');
  });

  test('colours follow the device until they are chosen, and stay chosen', async () => {
    const page = await opened('live', { colorScheme: 'dark' });
    const ground = () => page.evaluate(() => getComputedStyle(document.body).backgroundColor);
    const dark = await ground();
    await page.getByRole('button', { name: 'Colours: as the device' }).click();
    const light = await ground();
    expect(light).not.toBe(dark);
    await reload(page);
    await page.getByRole('button', { name: 'Colours: light' }).waitFor();
    expect(await ground()).toBe(light);
    await page.getByRole('button', { name: 'Colours: light' }).click();
    expect(await ground()).toBe(dark);
    await page.getByRole('button', { name: 'Colours: dark' }).click();
    await page.getByRole('button', { name: 'Colours: as the device' }).waitFor();
    await page.emulateMedia({ colorScheme: 'light' });
    expect(await ground()).toBe(light);
  });

  test('each tab has an address and is reached by the keyboard alone', async () => {
    const page = await opened('live');
    await page.keyboard.press('Tab');
    await eventually(
      () => page.evaluate(() => document.activeElement!.textContent),
      (text) => text === 'Skip to the content',
    );
    for (const tab of tabs) {
      await eventually(
        async () => {
          await page.keyboard.press('Tab');
          return page.evaluate(() => document.activeElement!.getAttribute('href'));
        },
        (href) => href === `#/${tab}`,
      );
      await page.keyboard.press('Enter');
      await page.getByRole('heading', { level: 1, name: new RegExp(tab, 'i') }).waitFor();
      expect(new URL(page.url()).hash).toBe(`#/${tab}`);
      expect(await page.getByRole('link', { name: new RegExp(`${tab}$`, 'i') }).getAttribute('aria-current')).toBe(
        'page',
      );
    }
    await page.goBack();
    await page.getByRole('heading', { level: 1, name: 'Cameras' }).waitFor();
  });
});

import { rmSync, writeFileSync } from 'node:fs';
import { join } from 'node:path';
import { BrowserContextOptions, Page, Route } from 'playwright-core';
import { describe, expect, test } from 'vitest';
import {
  ask,
  building,
  downloaded,
  eventually,
  expectText,
  isMissing,
  open,
  opened,
  show,
  useBrowser,
} from './browser';

/** Rows of so many periods of a quarter of an hour up to the end of March 2026, each with the time at which it ended. */
function report(rows: number): string {
  const columns = [
    'AOI1_Person_Lobby',
    'AverageAOI1_Person_Lobby',
    'Entrance1_Entrances_Person_Lobby',
    'Entrance2_Entrances_Person_Lobby',
    'Entrance1_Exits_Person_Lobby',
    'Entrance1_Entrances_Car_Yard',
    'Occup_Person_Lobby',
    'Occup_Car_Yard',
  ];
  const lines = [`Date,${columns.join(',')}`];
  const end = Date.UTC(2026, 3, 1);
  for (let i = rows - 1; i >= 0; --i) {
    const date = new Date(end - i * 900_000).toISOString().slice(0, 19).replace('T', ' ');
    lines.push(`${date},${i % 7},${i % 5},2,1,1,3,${i % 40},${i % 90}`);
  }
  return `${lines.join('\n')}\n`;
}

async function withReport(csv: string, options: BrowserContextOptions = {}): Promise<Page> {
  const answer = (route: Route) => route.fulfill({ contentType: 'text/csv', body: csv });
  const page = await open(options, (one) => one.context().route('**/*action=get_occupancy_csv', answer));
  await show(page, 'reports');
  return page;
}

const head = (page: Page) => page.getByTestId('report').locator('thead th').allTextContents();
const rows = (page: Page) => page.getByTestId('report').locator('tbody tr');

/** The chart's legend as the pointer stands at a fraction of its width: label and figure of each line. */
async function figuresAt(page: Page, fraction: number): Promise<Record<string, string>> {
  const plot = (await page.locator('.chart .u-over').boundingBox())!;
  await page.mouse.move(plot.x + plot.width * fraction - 3, plot.y + plot.height / 2);
  await page.mouse.move(plot.x + plot.width * fraction, plot.y + plot.height / 2);
  const rows = await page
    .locator('.chart .u-series')
    .evaluateAll((series) =>
      series.map(
        (row) => [row.querySelector('.u-label')!.textContent!, row.querySelector('.u-value')!.textContent!] as const,
      ),
    );
  return Object.fromEntries(rows);
}

/** How many pixels of the chart have about this colour, and the highest of them, in pixels from the top. */
async function painted(page: Page, colour: string): Promise<{ count: number; top: number }> {
  return page.locator('.chart canvas').evaluate((canvas: HTMLCanvasElement, wanted) => {
    const probe = new OffscreenCanvas(1, 1).getContext('2d')!;
    probe.fillStyle = getComputedStyle(document.documentElement).getPropertyValue(wanted).trim();
    probe.fillRect(0, 0, 1, 1);
    const [red, green, blue] = probe.getImageData(0, 0, 1, 1).data;
    const { data, width } = canvas.getContext('2d')!.getImageData(0, 0, canvas.width, canvas.height);
    let [count, top] = [0, Infinity];
    for (let i = 0; i < data.length; i += 4) {
      if (
        data[i + 3] < 200 ||
        Math.abs(data[i] - red) + Math.abs(data[i + 1] - green) + Math.abs(data[i + 2] - blue) > 12
      )
        continue;
      ++count;
      top = Math.min(top, Math.floor(i / 4 / width));
    }
    return { count, top };
  }, colour);
}

describe.skipIf(isMissing)('Reports', () => {
  useBrowser();

  test('the chart draws the figures of the table', async () => {
    const page = await withReport(report(96));
    await page.locator('.chart canvas').waitFor();
    const tableAt = async (time: string) => {
      const row = rows(page).filter({ has: page.locator('th', { hasText: time }) });
      return row.locator('td').allTextContents();
    };
    // At rest there are no figures, and it is said how to have them.
    expect(await page.locator('.chart .u-legend').innerText()).not.toContain('--');
    await page.locator('.chart .u-legend').getByText('point at the chart').waitFor();
    for (const fraction of [0.7, 0.85, 0.999]) {
      const { Until: time, ...figures } = await figuresAt(page, fraction);
      expect(Object.keys(figures)).toEqual(['Lobby', 'Yard']);
      expect(await tableAt(time)).toEqual(Object.values(figures));
    }
    // The last of 96 rows counts 0 back from the end.
    expect(await figuresAt(page, 0.999)).toMatchObject({ Lobby: '0', Yard: '0' });
  });

  test('lines are where their figures are: twice as many are twice as high', async () => {
    const at = (lobby: number, yard: number) =>
      `Date,Occup_Person_Lobby,Occup_Person_Yard\n2026-03-31 10:00:00,${lobby},${yard}\n2026-03-31 11:00:00,${lobby},${yard}\n2026-03-31 12:00:00,${lobby},${yard}\n`;
    const page = await withReport(at(40, 20));
    await page.locator('.chart canvas').waitFor();
    const [lobby, yard] = [await painted(page, '--series-1'), await painted(page, '--series-2')];
    expect(lobby.count).toBeGreaterThan(300);
    expect(yard.count).toBeGreaterThan(300);
    const plot = await page.locator('.chart').evaluate((chart) => {
      const [over, canvas] = [
        chart.querySelector('.u-over')!.getBoundingClientRect(),
        chart.querySelector('canvas')!.getBoundingClientRect(),
      ];
      return { bottom: (over.bottom - canvas.top) * devicePixelRatio };
    });
    const heights = [lobby, yard].map(({ top }) => plot.bottom - top);
    expect(heights[0] / heights[1]).toBeGreaterThan(1.9);
    expect(heights[0] / heights[1]).toBeLessThan(2.1);
  });

  test('the chart follows the colours, from the device and from the button', async () => {
    const page = await withReport(report(96), { colorScheme: 'light' });
    await page.locator('.chart canvas').waitFor();
    const colour = () =>
      page.evaluate(() => getComputedStyle(document.documentElement).getPropertyValue('--series-1').trim());
    const light = await colour();
    await page.emulateMedia({ colorScheme: 'dark' });
    const dark = await colour();
    expect(dark).not.toBe(light);
    await eventually(
      () => painted(page, '--series-1'),
      ({ count }) => count > 200,
    );
    await page.getByRole('button', { name: 'Colours: as the device' }).click();
    expect(await colour()).toBe(light);
    await eventually(
      () => painted(page, '--series-1'),
      ({ count }) => count > 200,
    );
  });

  test.each(['en-GB', 'de-DE', 'en-US'])(
    'dates are written as the table writes them, also at the axis: %s',
    async (locale) => {
      const page = await withReport(report(96 * 20), { locale });
      await page.locator('.chart canvas').waitFor();
      const drawn = await page.evaluate(async () => {
        const texts: string[] = [];
        const { fillText } = CanvasRenderingContext2D.prototype;
        CanvasRenderingContext2D.prototype.fillText = function (text: string, ...rest) {
          texts.push(text);
          return fillText.call(this, text, ...rest);
        };
        const select = document.querySelectorAll('select')[2];
        select.value = '1';
        select.dispatchEvent(new Event('change', { bubbles: true }));
        await new Promise((resolve) => setTimeout(resolve, 0));
        while (!texts.some((text) => /\d/.test(text))) await new Promise(requestAnimationFrame);
        return texts;
      });
      const days = Array.from({ length: 8 }, (_, i) =>
        new Intl.DateTimeFormat(locale, { day: 'numeric', month: 'short', timeZone: 'UTC' }).format(
          Date.UTC(2026, 2, 25 + i),
        ),
      );
      expect(drawn.some((text) => days.includes(text))).toBe(true);
      expect(drawn.filter((text) => text.includes('/'))).toEqual([]);
    },
  );

  test('a camera without a name is one to choose, not all of them', async () => {
    const page = await withReport(
      'Date,Occup_Person_,Occup_Person_Door\n2026-03-31 10:00:00,1,2\n2026-03-31 10:15:00,3,4\n',
    );
    await page.getByText('2 report rows').waitFor();
    expect(await head(page)).toEqual(['Until', '(no name)', 'Door']);
    await page.getByLabel('Camera', { exact: true }).selectOption('(no name)');
    expect(await head(page)).toEqual(['Until', '(no name)']);
    expect(await rows(page).first().locator('td').allTextContents()).toEqual(['3']);
    await page.getByLabel('Camera', { exact: true }).selectOption('All cameras');
    expect(await head(page)).toEqual(['Until', '(no name)', 'Door']);
  });

  test('zooms and moves by two fingers', async () => {
    const page = await withReport(report(96), {
      hasTouch: true,
      isMobile: true,
      viewport: { width: 390, height: 844 },
    });
    await page.getByText('1 to 50 of 96, newest first').waitFor();
    await page.locator('.chart').scrollIntoViewIfNeeded();
    const plot = (await page.locator('.chart .u-over').boundingBox())!;
    const session = await page.context().newCDPSession(page);
    const touch = (type: 'touchStart' | 'touchMove' | 'touchEnd', ...fractions: number[]) =>
      session.send('Input.dispatchTouchEvent', {
        type,
        touchPoints: fractions.map((fraction, id) => ({
          x: plot.x + plot.width * fraction,
          y: plot.y + 80 + 20 * id,
          id,
        })),
      });
    await touch('touchStart', 0.4, 0.6);
    await touch('touchMove', 0.3, 0.7);
    await touch('touchMove', 0.2, 0.8);
    await touch('touchEnd');
    await page.getByText(/1 to 3\d of 3\d, newest first/).waitFor();
    const newest = () => rows(page).first().locator('th').textContent();
    const before = await newest();
    await touch('touchStart', 0.4, 0.6);
    await touch('touchMove', 0.6, 0.8);
    await touch('touchEnd');
    await eventually(newest, (time) => time !== before);
    await touch('touchStart', 0.1, 0.9);
    await touch('touchMove', 0.3, 0.7);
    await touch('touchMove', 0.45, 0.55);
    await touch('touchEnd');
    await page.getByText('1 to 50 of 96, newest first').waitFor();
    expect(await page.getByRole('button', { name: 'Zoom out' }).isDisabled()).toBe(true);
  });

  test('every measure, and pages of rows back and forth', async () => {
    const page = await withReport(report(96));
    for (const [measure, columns] of [
      ['In the areas', ['Area 1']],
      ['In the areas, average', ['Area 1']],
      ['Exits', ['Entrance 1']],
      ['Inside', ['Total']],
      ['Entries', ['Lobby, Entrance 1', 'Lobby, Entrance 2', 'Yard, Entrance 1']],
    ] as const) {
      await page.getByLabel('Show', { exact: true }).selectOption(measure);
      await page.getByLabel('By', { exact: true }).selectOption('area or entrance');
      await expectText(page, 'shown', new RegExp(`^${measure},`));
      expect(await head(page)).toEqual(['Until', ...columns]);
    }
    await page.getByRole('button', { name: 'Older rows' }).click();
    await page.getByText('51 to 96 of 96, newest first').waitFor();
    expect(await page.getByRole('button', { name: 'Older rows' }).isDisabled()).toBe(true);
    await page.getByRole('button', { name: 'Newer rows' }).click();
    await page.getByText('1 to 50 of 96, newest first').waitFor();
    expect(await page.getByRole('button', { name: 'Newer rows' }).isDisabled()).toBe(true);
  });

  test('what the camera has counted is charted and listed, and can be had as a file and as a page', async () => {
    const page = await opened('reports');
    // The first period ends a minute after the start, and the followers' share comes after the leader's own.
    await eventually(
      async (): Promise<string[]> => {
        await page.getByRole('button', { name: 'Read again' }).click();
        return (await page.getByTestId('report').count()) === 1 ? head(page) : [];
      },
      (names) => ['Until', 'Follower 1', 'Follower 2', 'Leader'].every((name) => names.includes(name)),
    );
    await page.locator('.chart canvas').waitFor();
    await page.getByLabel('Show', { exact: true }).selectOption('Entries');
    await page.getByLabel('By', { exact: true }).selectOption('area or entrance');
    expect(await head(page)).toEqual([
      'Until',
      ...['Follower 1', 'Follower 2', 'Leader'].flatMap((camera) => [`${camera}, Entrance 1`, `${camera}, Entrance 2`]),
    ]);

    expect(await downloaded(page, 'Download as CSV')).toMatch(/^Date,AOI1_/);
    const [table] = await Promise.all([
      page.context().waitForEvent('page'),
      page.getByRole('link', { name: 'Open as a web page' }).click(),
    ]);
    await table.getByRole('heading', { name: 'Senvo Summary Report' }).waitFor();
    expect(await ask(page, 'get_occupancy_csv')).toContain('Occup_Person_Leader');
  });

  test('day, week and month; per entrance, class and camera', async () => {
    const page = await withReport(report(4 * 24 * 40));
    await page.getByLabel('Show', { exact: true }).selectOption('Entries');
    await page.getByLabel('By', { exact: true }).selectOption('all together');
    await expectText(page, 'shown', /^Entries, 31 Mar 2026$/);
    expect(await rows(page).first().locator('td').allTextContents()).toEqual(['6']);
    await page.getByLabel('Over', { exact: true }).selectOption('a week');
    await expectText(page, 'shown', /^Entries, 25 Mar 2026 – 31 Mar 2026$/);
    expect(await rows(page).first().locator('td').allTextContents()).toEqual([String(4 * 6)]);
    await page.getByLabel('Over', { exact: true }).selectOption('a month');
    await expectText(page, 'shown', /^Entries, 1 Mar 2026 – 31 Mar 2026$/);
    expect(await rows(page).count()).toBe(31);
    expect(await rows(page).first().locator('td').allTextContents()).toEqual([String(24 * 4 * 6)]);
    await page.getByLabel('By', { exact: true }).selectOption('area or entrance');
    expect(await rows(page).first().locator('td').allTextContents()).toEqual([96 * 2, 96, 96 * 3].map(String));
    await page.getByLabel('By', { exact: true }).selectOption('kind');
    expect(await head(page)).toEqual(['From', 'Cars', 'Persons']);
    await page.getByLabel('Camera', { exact: true }).selectOption('Lobby');
    expect(await head(page)).toEqual(['From', 'Persons']);
    await page.getByRole('button', { name: 'Earlier' }).click();
    await expectText(page, 'shown', /^Entries, 20 Feb 2026 – 28 Feb 2026$/);
    expect(await page.getByRole('button', { name: 'Earlier' }).isDisabled()).toBe(true);
    await page.getByRole('button', { name: 'Later' }).click();
    await expectText(page, 'shown', /Mar/);
    await page.getByLabel('Show', { exact: true }).selectOption('Exits');
    await page.getByLabel('Camera', { exact: true }).selectOption('All cameras');
    await page.getByLabel('Kind').selectOption('Cars');
    await page.getByText('Nothing was counted here in this time.').waitFor();
  });

  test('zooms by dragging and by buttons', async () => {
    const page = await withReport(report(96));
    await eventually(
      () => rows(page).count(),
      (count) => count === 50,
    );
    await page.getByText('1 to 50 of 96, newest first').waitFor();
    await page.getByRole('button', { name: 'Zoom in' }).click();
    await page.getByText(/1 to 4\d of 4\d, newest first/).waitFor();
    await page.getByRole('button', { name: 'Zoom out' }).click();
    await page.getByText('1 to 50 of 96, newest first').waitFor();
    expect(await page.getByRole('button', { name: 'Zoom out' }).isDisabled()).toBe(true);
    const plot = (await page.locator('.chart .u-over').boundingBox())!;
    await page.mouse.move(plot.x + plot.width * 0.5, plot.y + 50);
    await page.mouse.down();
    await page.mouse.move(plot.x + plot.width * 0.75, plot.y + 60, { steps: 4 });
    await page.mouse.up();
    await page.getByText(/1 to 2\d of 2\d, newest first/).waitFor();
    await page.locator('.chart .u-over').dblclick();
    await page.getByText('1 to 50 of 96, newest first').waitFor();
    await page.getByRole('button', { name: 'Older rows' }).click();
    await page.getByText('51 to 96 of 96, newest first').waitFor();
  });

  test('a report that goes on is read again when asked to, and the zoom stays', async () => {
    let rows = 48;
    const page = await open({}, async (one) => {
      await one.clock.install();
      await one
        .context()
        .route('**/*action=get_occupancy_csv', (route) =>
          route.fulfill({ contentType: 'text/csv', body: report(rows) }),
        );
    });
    await show(page, 'reports');
    await page.getByText('48 report rows').waitFor();
    await page.getByRole('button', { name: 'Zoom in' }).click();
    rows = 96;
    await page.clock.fastForward(3_600_000);
    await page.getByText('48 report rows').waitFor();
    await page.getByRole('button', { name: 'Read again' }).click();
    await page.getByText('96 report rows').waitFor();
    expect(await page.getByRole('button', { name: 'Zoom out' }).isEnabled()).toBe(true);
  });

  test('a hundred thousand rows stay usable', async () => {
    // Beside the page, so that it comes through the web server as the camera's own would.
    const file = join(building!.state, 'root/usr/local/packages/ostrel_senvo/html/many.json');
    writeFileSync(file, report(100_000));
    const page = await open({}, (one) =>
      one
        .context()
        .route('**/*action=get_occupancy_csv', (route) =>
          route.continue({ url: `${building!.url}local/ostrel_senvo/many.json` }),
        ),
    );
    await show(page, 'reports');
    const elapsed = await page.evaluate(
      () =>
        new Promise<number>((resolve) => {
          const look = () =>
            document.querySelector('.chart canvas') ? resolve(performance.now()) : requestAnimationFrame(look);
          look();
        }),
    );
    console.log(`100,000 rows: first chart ${Math.round(elapsed)} ms after the page was opened`);
    await page.getByText('100000 report rows').waitFor();
    await page.getByLabel('Over', { exact: true }).selectOption('everything');
    expect(await rows(page).count()).toBe(50);
    await page.getByLabel('Show', { exact: true }).selectOption('In the areas');
    await expectText(page, 'shown', /^In the areas/);
    rmSync(file);
  });

  test.each([
    ['nothing yet', 'Date\n', 'The camera has written no report yet.'],
    ['an empty answer', '', 'The camera has written no report yet.'],
    [
      'lines that are no rows',
      'Date,Occup_Person_A\n2026-03-31 10:00:00,5\nbroken\n',
      '1 line of the report could not be read, or has a date in the future or out of order.',
    ],
    ['no report at all', '<html><body>Something else</body></html>', 'The camera has written no report yet.'],
  ])('%s', async (_, csv, words) => {
    const page = await withReport(csv);
    await page.getByText(words).waitFor();
  });

  test('a report that does not come is said in words', async () => {
    const page = await open({}, (one) =>
      one.context().route('**/*action=get_occupancy_csv', (route) => route.fulfill({ status: 503 })),
    );
    await show(page, 'reports');
    await page.getByRole('alert').filter({ hasText: 'the camera is restarting' }).waitFor();
  });
});

import { readFileSync, rmSync, writeFileSync } from 'node:fs';
import { join } from 'node:path';
import { Page, Route } from 'playwright-core';
import { describe, expect, test } from 'vitest';
import { ask, building, eventually, expectText, isMissing, open, opened, show, useBrowser } from './browser';

/** Rows of so many periods of a quarter of an hour up to the end of March 2026. */
function report(rows: number): string {
  const columns = ['AOI1_Person_Lobby', 'AverageAOI1_Person_Lobby', 'Entrance1_Entrances_Person_Lobby', 'Entrance2_Entrances_Person_Lobby',
    'Entrance1_Exits_Person_Lobby', 'Entrance1_Entrances_Car_Yard', 'Occup_Person_Lobby', 'Occup_Car_Yard'];
  const lines = [`Date,${columns.join(',')}`];
  const end = Date.UTC(2026, 2, 31, 23, 45);
  for (let i = rows - 1; i >= 0; --i) {
    const date = new Date(end - i * 900_000).toISOString().slice(0, 19).replace('T', ' ');
    lines.push(`${date},${i % 7},${i % 5},2,1,1,3,${i % 40},${i % 90}`);
  }
  return lines.join('\n') + '\n';
}

async function withReport(csv: string): Promise<Page> {
  const answer = (route: Route) => route.fulfill({ contentType: 'text/csv', body: csv });
  const page = await open({}, (one) => one.context().route('**/*action=get_occupancy_csv', answer));
  await show(page, 'reports');
  return page;
}

const head = (page: Page) => page.getByTestId('report').locator('thead th').allTextContents();
const rows = (page: Page) => page.getByTestId('report').locator('tbody tr');

describe.skipIf(isMissing)('Reports', () => {
  useBrowser();

  test('what the camera has counted is charted and listed, and can be had as a file and as a page', async () => {
    const page = await opened('reports');
    // The first period ends a minute after the start, and the followers' share comes after the leader's own.
    await eventually(async (): Promise<string[]> => {
      await page.getByRole('button', { name: 'Read again' }).click();
      return (await page.getByTestId('report').count()) === 1 ? head(page) : [];
    }, (names) => ['Time', 'Follower 1', 'Follower 2', 'Leader'].every((name) => names.includes(name)));
    await page.locator('.chart canvas').waitFor();
    await page.getByLabel('Show', { exact: true }).selectOption('Entries');
    await page.getByLabel('By', { exact: true }).selectOption('area or entrance');
    expect(await head(page)).toEqual(['Time', 'Entrance 1', 'Entrance 2']);

    const [download] = await Promise.all([page.waitForEvent('download'), page.getByRole('link', { name: 'Download as CSV' }).click()]);
    expect(readFileSync(await download.path(), 'utf8')).toMatch(/^Date,AOI1_/);
    const [table] = await Promise.all([page.context().waitForEvent('page'), page.getByRole('link', { name: 'Open as a page' }).click()]);
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
    expect(await rows(page).first().locator('td').allTextContents()).toEqual([String(96 * (2 + 3)), String(96)]);
    await page.getByLabel('By', { exact: true }).selectOption('class');
    expect(await head(page)).toEqual(['Time', 'Cars', 'Persons']);
    await page.getByLabel('Camera', { exact: true }).selectOption('Lobby');
    expect(await head(page)).toEqual(['Time', 'Persons']);
    await page.getByRole('button', { name: 'Earlier' }).click();
    await expectText(page, 'shown', /^Entries, 20 Feb 2026 – 28 Feb 2026$/);
    expect(await page.getByRole('button', { name: 'Earlier' }).isDisabled()).toBe(true);
    await page.getByRole('button', { name: 'Later' }).click();
    await expectText(page, 'shown', /Mar/);
    await page.getByLabel('Show', { exact: true }).selectOption('Exits');
    await page.getByLabel('Camera', { exact: true }).selectOption('All cameras');
    await page.getByLabel('Class').selectOption('Cars');
    await page.getByText('Nothing was counted here in this time.').waitFor();
  });

  test('zooms by dragging and by buttons', async () => {
    const page = await withReport(report(96));
    await eventually(() => rows(page).count(), (count) => count === 50);
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

  test('a hundred thousand rows stay usable', async () => {
    // Beside the page, so that it comes through the web server as the camera's own would.
    const file = join(building!.state, 'root/usr/local/packages/ostrel_senvo/html/many.json');
    writeFileSync(file, report(100_000));
    const page = await open({}, (one) =>
      one.context().route('**/*action=get_occupancy_csv', (route) => route.continue({ url: `${building!.url}local/ostrel_senvo/many.json` })));
    await show(page, 'reports');
    const elapsed = await page.evaluate(
      () =>
        new Promise<number>((resolve) => {
          const look = () => (document.querySelector('.chart canvas') ? resolve(performance.now()) : requestAnimationFrame(look));
          look();
        }),
    );
    console.log(`100,000 rows: first chart ${Math.round(elapsed)} ms after the page was opened`);
    await page.getByText('100000 report rows').waitFor();
    await page.getByLabel('Over', { exact: true }).selectOption('everything');
    expect(await rows(page).count()).toBe(50);
    await page.getByLabel('Show', { exact: true }).selectOption('Crowd');
    await expectText(page, 'shown', /^Crowd/);
    rmSync(file);
  });

  test.each([
    ['nothing yet', 'Date\n', 'The camera has written no report yet.'],
    ['an empty answer', '', 'The camera has written no report yet.'],
    ['lines that are no rows', 'Date,Occup_Person_A\n2026-03-31 10:00:00,5\nbroken\n', '1 line of the report could not be read.'],
    ['no report at all', '<html><body>Something else</body></html>', 'The camera has written no report yet.'],
  ])('%s', async (_, csv, words) => {
    const page = await withReport(csv);
    await page.getByText(words).waitFor();
  });

  test('a report that does not come is said in words', async () => {
    const page = await open({}, (one) => one.context().route('**/*action=get_occupancy_csv', (route) => route.fulfill({ status: 503 })));
    await show(page, 'reports');
    await page.getByRole('alert').filter({ hasText: 'the camera is restarting' }).waitFor();
  });
});

import { join } from 'node:path';
import { Page } from 'playwright-core';
import { describe, expect, test } from 'vitest';
import { ask, eventually, expectText, isMissing, opened, reload, screenshots, useBrowser } from './browser';

interface Crossing {
  t: string;
  entrance: number;
  direction: string;
}

/** A page on which somebody counts since now, that takes the camera's clock to be two minutes ahead: a minute is over. */
async function counting(options: Parameters<typeof opened>[1] = {}): Promise<{ page: Page; begin: number }> {
  const begin = Date.now();
  const count = { begin, end: begin + 900_000, light: 'lamps', remark: 'in a test', taps: [], ahead: 120_000 };
  const page = await opened('count', options, (one) =>
    one.addInitScript((kept) => {
      // Once: what is tapped and handed in is not to come back.
      if (sessionStorage.getItem('begun')) return;
      sessionStorage.setItem('begun', '1');
      localStorage.setItem('senvo-hand-count', kept);
    }, JSON.stringify(count)),
  );
  return { page, begin };
}

const phone = { viewport: { width: 390, height: 844 }, hasTouch: true, isMobile: true };

describe.skipIf(isMissing)('Hand count', () => {
  useBrowser();

  test('somebody begins on a phone, taps and takes back, and sees nothing of what the camera counts', async () => {
    const page = await opened('count', phone);
    await page.getByLabel('Minutes').fill('61');
    await page.getByText('A whole number from 1 to 60, please.').waitFor();
    expect(await page.getByRole('button', { name: 'Start counting' }).isDisabled()).toBe(true);
    await page.getByLabel('Minutes').fill('5');
    await page.getByLabel('Light').selectOption('Dark');
    await page.getByRole('button', { name: 'Start counting' }).tap();
    const first = page.getByRole('group', { name: 'Entrance 1' });
    await first.getByRole('button', { name: /^In/ }).tap();
    await first.getByRole('button', { name: /^In/ }).tap();
    await first.getByRole('button', { name: /^Out/ }).tap();
    await page.getByText('3 taps; the last: out through entrance 1').waitFor();
    await page.getByRole('button', { name: 'Take back the last tap' }).tap();
    await page.getByText('2 taps; the last: in through entrance 1').waitFor();
    expect(await page.getByRole('timer').innerText()).toMatch(/^[45]:\d\d left$/);
    expect(await page.locator('nav.tabs').count()).toBe(0);
    expect(await page.getByTestId('status').count()).toBe(0);
    await page.screenshot({ path: join(screenshots, 'counting-phone.png') });
    await page.evaluate(() => (location.hash = '#/live'));
    await reload(page);
    await page.getByText('2 taps; the last: in through entrance 1').waitFor();
    expect(await page.getByTestId('occupancy').count()).toBe(0);
    await page.getByRole('button', { name: 'Throw away' }).tap();
    await page.getByRole('dialog').getByRole('button', { name: 'Throw away' }).tap();
    await page.getByTestId('occupancy').waitFor();
  });

  test('what was tapped stands beside the camera’s crossings', async () => {
    const { page, begin } = await counting();
    await page.getByRole('group', { name: 'Entrance 1' }).getByRole('button', { name: /^In/ }).click();
    await page.getByRole('group', { name: 'Entrance 1' }).getByRole('button', { name: /^Out/ }).click();
    await page.getByRole('button', { name: 'Finish now' }).click();
    const record = page.getByTestId('hand-count').filter({ hasText: 'in a test' }).first();
    await record.waitFor();
    expect(await record.locator('p.muted').innerText()).toBe('operator · Lamps · in a test');
    const figures = await record.locator('tbody td').allInnerTexts();
    const [handIn, cameraIn, handOut, cameraOut] = figures.map(Number);
    expect([handIn, handOut]).toEqual([1, 1]);
    const [missed, invented] = ((await record.locator('p').last().innerText()).match(/\d+/g) ?? [0, 0]).map(Number);
    expect(cameraIn + cameraOut).toBe(2 - missed + invented);
    const lines = (await ask(page, `get_ledger&kinds=crossing&from=${new Date(begin).toISOString()}`)).split('\n');
    const crossings = lines.filter(Boolean).map((line) => JSON.parse(line) as Crossing);
    const handed = JSON.parse(
      (await ask(page, `get_ledger&kinds=hand_count&from=${new Date(begin).toISOString()}`)).trim().split('\n').at(-1)!,
    ) as { begin: string; end: string; taps: unknown[] };
    const inside = crossings.filter(({ t }) => t >= handed.begin && t <= handed.end).length;
    // Of those that have come since, the page knows nothing.
    expect(invented).toBeLessThanOrEqual(inside);
    expect(handed.taps).toHaveLength(2);
    await expectText(page, 'verdict', /Not shown/);
    expect(await page.getByTestId('verdicts').locator('tbody th').allInnerTexts()).toContain('Lamps');
    await page.screenshot({ path: join(screenshots, 'count-result.png'), fullPage: true });
  });

  test('a count that the camera does not take is kept, and handed in later', async () => {
    const { page } = await counting();
    let isAway = true;
    const handedIn: string[] = [];
    await page.route(/action=hand_count/, (route) => {
      if (isAway) return route.fulfill({ status: 503 });
      handedIn.push(route.request().postData()!);
      return route.continue();
    });
    await page.getByRole('group', { name: 'Entrance 1' }).getByRole('button', { name: /^In/ }).click();
    await page.getByRole('button', { name: 'Finish now' }).click();
    await page.getByText('Not handed in, and kept here: the camera is restarting.').waitFor();
    await reload(page);
    await page.getByText('Not handed in').waitFor();
    isAway = false;
    await page.getByRole('button', { name: 'Try again' }).click();
    await eventually(
      async () => handedIn.length,
      (count) => count === 1,
    );
    expect((JSON.parse(handedIn[0]) as { taps: unknown[] }).taps).toHaveLength(1);
    await page.getByRole('button', { name: 'Start counting' }).waitFor();
  });
});

describe.skipIf(isMissing)('At a glance', () => {
  useBrowser();

  const counts = (entrance: number, cameIn: number) => [{ entrance, direction: 'in', count: cameIn }];

  /** A camera in the year 2026, on whose clock it is Sunday, November 22nd, 14:15. */
  async function withCounts(tab: 'live' | 'reports'): Promise<Page> {
    return opened(tab, {}, (page) =>
      page.route(/action=get_counts&(?=.*(step=quarter|to=))/, (route) => {
        const query = new URL(route.request().url()).searchParams;
        const row = (begin: string, end: string, of: object[]) => ({ begin, end, coverage: 1, counts: of });
        const day = (query.get('from') ?? '').slice(0, 10);
        const rows =
          query.get('step') === 'quarter'
            ? [row('2026-11-22T14:00:00+09:00', '2026-11-22T14:15:00+09:00', [])]
            : query.get('step') === 'hour'
              ? [
                  row('2026-11-21T08:00:00+09:00', '2026-11-21T09:00:00+09:00', counts(1, 30)),
                  row('2026-11-21T16:00:00+09:00', '2026-11-21T17:00:00+09:00', counts(2, 70)),
                ]
              : [
                  row(
                    `${day}T00:00:00+09:00`,
                    `${day}T23:00:00+09:00`,
                    counts(0, ({ '2026-11-21': 100, '2026-11-14': 80 } as Record<string, number>)[day] ?? 40),
                  ),
                ];
        return route.fulfill({ json: { known_from: null, rows } });
      }),
    );
  }

  for (const tab of ['live', 'reports'] as const)
    test(`${tab} begins with it`, async () => {
      const page = await withCounts(tab);
      await expectText(page, 'answer-today', /40 is usual by now: average of 4 Sundays/);
      await expectText(
        page,
        'answer-yesterday',
        /In yesterday, 21 Nov 2026\s*100\s*25 % more than on Saturday a week before \(80\)/,
      );
      await expectText(page, 'answer-peak', /16:00 – 17:00\s*70 in/);
      await expectText(page, 'answer-busiest', /Entrance 2\s*70 in/);
      await page.screenshot({ path: join(screenshots, `answers-${tab}.png`), fullPage: true });
    });
});

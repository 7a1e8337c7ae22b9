import { describe, expect, test } from 'vitest';
import { hostileRounds, hostileTexts } from '../hostile';
import {
  ask,
  eventually,
  isMissing,
  open,
  opened,
  post,
  reload,
  show,
  store,
  stored,
  tabs,
  useBrowser,
} from './browser';
import { expectHarmless } from './harmless';

/** As a browser shows a text with spaces and marks of direction. */
const shown = (text: string) => text.replace(/\s+/g, ' ').trim();

describe.skipIf(isMissing)('Hostile texts', () => {
  useBrowser();

  test('in every field that the camera shows are nothing but text', async () => {
    let texts: string[] = [''];
    let asked = 0;
    /** One after the other, for what has a single field. */
    const next = () => texts[asked++ % texts.length];
    const settings = await ask(await opened('live'), 'get_all_parameters');
    const page = await open({}, async (one) => {
      const context = one.context();
      const numbers = Array.from({ length: 11 }, (_, i) => i);
      const nameOf = (i: number) => texts[i % texts.length];
      await context.route('**/*action=get_data_panel_info', (route) =>
        route.fulfill({
          contentType: 'text/xml',
          body: `<app><TotalOcc>${nameOf(0)}</TotalOcc>${numbers.map((i) => `<NameCam_${i}>${nameOf(i)}</NameCam_${i}>`).join('')}${numbers
            .map(
              (i) =>
                `<AOICam_${i}>${nameOf(i)}</AOICam_${i}><ActiveCam_${i}>1</ActiveCam_${i}><StatusCam_${i}>${nameOf(i)}</StatusCam_${i}>`,
            )
            .join('')}</app>`,
        }),
      );
      for (const action of [
        'get_occupancy_count',
        'get_total_crowd',
        'get_execution_time',
        'get_analysis_resolution',
      ]) {
        await context.route(`**/*action=${action}`, (route) =>
          route.fulfill({ contentType: 'text/plain', body: next() }),
        );
      }
      await context.route('**/*action=get_occupancy_csv', (route) =>
        route.fulfill({
          contentType: 'text/csv',
          body: `Date,${texts.map((text) => `Occup_Person_${text}`)}\n2026-03-31 10:00:00,${texts.map(() => 5)}\n`,
        }),
      );
      await context.route('**/*action=get_newest_log', (route) =>
        route.fulfill({
          contentType: 'text/plain',
          body: texts.map((text) => `${text}\n2026-03-31 10:00:00|ostrel_senvo|error|${text}\n`).join(''),
        }),
      );
      await context.route('**/live/**', (route) =>
        route.fulfill({ status: 503, contentType: 'text/plain', body: texts[asked % texts.length] }),
      );
      await context.route('**/*action=get_all_parameters', (route) => {
        let tags = 0;
        return route.fulfill({
          contentType: 'text/xml',
          body: settings.replace(
            /<(\w+)>[^<]*<\/\1>/g,
            (_, tag: string) => `<${tag}>${tag === 'CamName' ? nameOf(0) : nameOf(++tags)}</${tag}>`,
          ),
        });
      });
    });
    for (const round of hostileRounds(11)) {
      texts = round;
      await show(page, 'live');
      await reload(page);
      const everywhere = (all: (string | null)[]) => texts.every((text) => all.includes(text));
      await eventually(() => page.getByTestId('cameras').locator('tbody th').allTextContents(), everywhere);
      expect(await page.locator('.camera-name').textContent()).toBe(texts[0]);
      // A value ends at its own closing tag, wherever that comes from.
      expect(await page.getByTestId('status').textContent()).toBe(texts[0].split('</StatusCam_0>')[0]);
      await expectHarmless(page);
      for (const tab of ['areas', 'detection', 'cameras'] as const) {
        await page.evaluate((name) => (location.hash = `#/${name}`), tab);
        await page
          .locator(tab === 'areas' ? 'svg.editor' : 'input')
          .first()
          .waitFor();
        await expectHarmless(page);
      }
      expect(await page.locator('input[name=CamName]').inputValue()).toBe(texts[0]);
      const inputs = page.locator('input[type=text]');
      expect(await inputs.evaluateAll((all) => all.map((one) => (one as HTMLInputElement).value))).toEqual(
        expect.arrayContaining(texts),
      );
      await page.evaluate(() => (location.hash = '#/reports'));
      await eventually(() => page.getByTestId('report').locator('thead th').allTextContents(), everywhere);
      await expectHarmless(page);
      await page.evaluate(() => (location.hash = '#/advanced'));
      await page.getByRole('button', { name: 'View Log' }).click();
      await eventually(
        () => page.getByTestId('log').locator('.message').allTextContents(),
        (lines) => lines.length === 2 * texts.length && everywhere(lines),
      );
      await expectHarmless(page);
    }
  });

  test('in place of the live picture are nothing but text', async () => {
    let current = '';
    const page = await opened('cameras', {}, (one) =>
      one
        .context()
        .route('**/live/**', (route) => route.fulfill({ status: 503, contentType: 'text/plain', body: current })),
    );
    for (const text of hostileTexts) {
      current = text;
      // The picture is begun anew whenever one comes to it.
      for (const tab of ['cameras', 'live']) await page.evaluate((name) => (location.hash = `#/${name}`), tab);
      await eventually(
        () => page.locator('.no-picture').innerText(),
        (words) => words.includes(shown(text).slice(0, 20)) || text === '\u202Eright to left',
      );
      await expectHarmless(page);
    }
  });

  test('that were sent to the real camera change nothing but what is read', async () => {
    const page = await opened('live');
    const before = { CamName: await stored(page, 'CamName'), FO1_Name: await stored(page, 'FO1_Name') };
    for (const text of hostileTexts) {
      expect(
        await post(
          page,
          'post_submit_log',
          `<root><log_severity>info</log_severity><log_entry>${text}</log_entry></root>`,
        ),
      ).toBe(200);
    }
    await page.evaluate(() => (location.hash = '#/advanced'));
    await page.getByRole('button', { name: 'View Log' }).click();
    const lines = page.getByTestId('log').locator('.message');
    // The camera itself cuts at a "<" and makes a space of a tab.
    const plain = hostileTexts.filter((text) => !text.includes('<')).map((text) => text.replace('\t', ' '));
    await eventually(
      async () => {
        const read = await lines.allTextContents();
        return plain.filter((text) => !read.includes(text));
      },
      (missing) => missing.length === 0,
    );
    await expectHarmless(page);
    await show(page, 'live');
    for (const name of hostileTexts) {
      // What a "<" cuts off is read as elements: none of these may be one that the camera knows.
      // And the settings end where they are said to end.
      if (/<(Total|Status|\/root)/.test(name)) continue;
      await store(page, { CamName: name, FO1_Name: name });
      const told = /<NameCam_0>(.*?)<\/NameCam_0>/s.exec(await ask(page, 'get_data_panel_info'))![1];
      // Who comes back to the page has it ask at once.
      await page.evaluate(() => document.dispatchEvent(new Event('visibilitychange')));
      await eventually(
        () => page.locator('.camera-name').textContent(),
        (text) => text === told,
      );
      await expectHarmless(page);
    }
    for (const tab of tabs) {
      await show(page, tab);
      await expectHarmless(page);
    }
    await store(page, before);
  });
});

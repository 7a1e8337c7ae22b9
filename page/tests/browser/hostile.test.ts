import { describe, expect, test } from 'vitest';
import { hostileTexts } from '../hostile';
import { ask, eventually, isMissing, open, opened, post, show, store, stored, tabs, useBrowser } from './browser';
import { expectHarmless } from './harmless';

/** As a browser shows a text with spaces and marks of direction. */
const shown = (text: string) => text.replace(/\s+/g, ' ').trim();

describe.skipIf(isMissing)('Hostile texts', () => {
  useBrowser();

  test('in every field that the camera shows are nothing but text', async () => {
    let current = '';
    const settings = await ask(await opened('live'), 'get_all_parameters');
    const page = await open({}, async (one) => {
      const context = one.context();
      const numbers = Array.from({ length: 11 }, (_, i) => i);
      await context.route('**/*action=get_data_panel_info', (route) =>
        route.fulfill({
          contentType: 'text/xml',
          body: `<app><TotalOcc>${current}</TotalOcc>${numbers.map((i) => `<NameCam_${i}>${current}</NameCam_${i}>`).join('')}${numbers
            .map(
              (i) =>
                `<AOICam_${i}>${current}</AOICam_${i}><ActiveCam_${i}>1</ActiveCam_${i}><StatusCam_${i}>${current}</StatusCam_${i}>`,
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
          route.fulfill({ contentType: 'text/plain', body: current }),
        );
      }
      await context.route('**/*action=get_occupancy_csv', (route) =>
        route.fulfill({ contentType: 'text/csv', body: `Date,Occup_Person_${current}\n2026-03-31 10:00:00,5\n` }),
      );
      await context.route('**/*action=get_newest_log', (route) =>
        route.fulfill({
          contentType: 'text/plain',
          body: `${current}\n2026-03-31 10:00:00|ostrel_senvo|error|${current}\n`,
        }),
      );
      await context.route('**/live/**', (route) =>
        route.fulfill({ status: 503, contentType: 'text/plain', body: current }),
      );
      await context.route('**/*action=get_all_parameters', (route) =>
        route.fulfill({
          contentType: 'text/xml',
          body: settings.replace(/<(\w+)>[^<]*<\/\1>/g, (_, tag: string) => `<${tag}>${current}</${tag}>`),
        }),
      );
    });
    for (const text of hostileTexts) {
      current = text;
      await show(page, 'live');
      await page.reload();
      await eventually(
        () => page.getByTestId('cameras').locator('tbody th').first().textContent(),
        (name) => name === text,
      );
      expect(await page.locator('.camera-name').textContent()).toBe(text);
      // A value ends at its own closing tag, wherever that comes from.
      expect(await page.getByTestId('status').textContent()).toBe(text.split('</StatusCam_0>')[0]);
      await eventually(
        () => page.locator('.no-picture').innerText(),
        (words) => words.includes(shown(text).slice(0, 20)) || text === '\u202Eright to left',
      );
      await expectHarmless(page);
      for (const tab of ['areas', 'detection', 'cameras'] as const) {
        await page.evaluate((name) => (location.hash = `#/${name}`), tab);
        await page
          .locator(tab === 'areas' ? 'svg.editor' : 'input')
          .first()
          .waitFor();
        await expectHarmless(page);
      }
      expect(await page.locator('input[name=CamName]').inputValue()).toBe(text);
      await page.evaluate(() => (location.hash = '#/reports'));
      await eventually(
        () => page.getByTestId('report').locator('thead th').last().textContent(),
        (name) => name === text,
      );
      await expectHarmless(page);
      await page.evaluate(() => (location.hash = '#/advanced'));
      await page.getByRole('button', { name: 'View Log' }).click();
      await eventually(
        () => page.getByTestId('log').locator('.message').allTextContents(),
        (lines) => lines.length === 2 && lines.every((line) => line === text),
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
    for (const name of hostileTexts) {
      // What a "<" cuts off is read as elements: none of these may be one that the camera knows.
      // And the settings end where they are said to end.
      if (/<(Total|Status|\/root)/.test(name)) continue;
      await store(page, { CamName: name, FO1_Name: name });
      await show(page, 'live');
      const told = /<NameCam_0>(.*?)<\/NameCam_0>/s.exec(await ask(page, 'get_data_panel_info'))![1];
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

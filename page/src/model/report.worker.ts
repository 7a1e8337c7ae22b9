import { fetchReport } from './report_fetch';

/* Fetches and reads the report beside the page, which stays at hand meanwhile. */

self.onmessage = async (event: MessageEvent<string>) => {
  const answer = await fetchReport(event.data);
  const buffers =
    'report' in answer
      ? [answer.report.times.buffer, ...answer.report.columns.map((column) => column.values.buffer)]
      : [];
  self.postMessage(answer, { transfer: buffers });
};

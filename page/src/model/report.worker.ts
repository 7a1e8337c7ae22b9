import { request, CameraError } from './api';
import { ReportReader } from './report';

/* Fetches and reads the report beside the page, which stays at hand meanwhile. */

self.onmessage = async (event: MessageEvent<string>) => {
  try {
    const response = await request(event.data);
    const reader = new ReportReader();
    const body = response.body!.getReader();
    for (let piece = await body.read(); !piece.done; piece = await body.read()) reader.push(piece.value);
    const report = reader.finish();
    const buffers = [report.times.buffer, ...report.columns.map((column) => column.values.buffer)];
    self.postMessage({ report }, { transfer: buffers });
  } catch (error) {
    self.postMessage({ trouble: error instanceof CameraError ? error.trouble : 'unreachable' });
  }
};

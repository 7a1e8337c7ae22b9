import { setZone, Zone } from '../dates';
import { ask } from './api';
import { Store } from './store';

/** The zone in which the camera hangs, by which every time on the page is told. */
export class CameraTime extends Store {
  /** Null before it is known. */
  zone: Zone | null = null;

  /** Asks for it, as whenever the camera is there again: it may have been set meanwhile. */
  async load(): Promise<void> {
    try {
      const { zone, offset } = JSON.parse(await ask('get_about')) as { zone?: unknown; offset?: unknown };
      if (typeof zone !== 'string' || typeof offset !== 'number') return;
      this.zone = { name: zone, offset };
    } catch {
      return; // then it is as it was
    }
    setZone(this.zone);
    this.changed();
  }
}

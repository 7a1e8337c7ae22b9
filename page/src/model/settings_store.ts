import { ask, CameraError, post, Trouble } from './api';
import { Point, Size } from './geometry';
import { readResolution, readResolutions } from './readers';
import {
  AreaKind, differences, edited, polygonChanges, polygonOf, problems, readSettings, uploadBody, Values, withEdits,
} from './settings';
import { Store } from './store';

export type SaveState =
  | { is: 'idle' | 'saving' | 'saved' }
  | { is: 'failed'; trouble: Trouble; status: number }
  /** Somebody else has changed these settings since they were loaded. */
  | { is: 'conflict'; theirs: string[]; latest: Values };

const kFallbackSize: Size = { width: 1280, height: 720 };

/** The settings as loaded, what was changed since, and the saving of it. */
export class SettingsStore extends Store {
  loaded: Values | null = null;
  edits: Values = new Map();
  size: Size = kFallbackSize;
  trouble: Trouble | null = null;
  save: SaveState = { is: 'idle' };
  private history: Values[] = [];
  private lastKey = '';

  get values(): Values {
    return withEdits(this.loaded ?? new Map(), this.edits);
  }
  get problems(): Map<string, string> {
    return problems(this.loaded ?? new Map(), this.edits);
  }
  get resolutions(): string[] {
    return readResolutions(this.loaded?.get('CamsResAsCsv') ?? '');
  }
  get canUndo(): boolean {
    return this.history.length > 0;
  }
  polygon(kind: AreaKind, number: number): Point[] {
    return polygonOf(this.values, kind, number, this.size);
  }

  async load(): Promise<void> {
    try {
      const [loaded, resolution] = await Promise.all([ask('get_all_parameters').then(readSettings), ask('get_analysis_resolution')]);
      if (!loaded) throw new CameraError('refused', 200);
      this.loaded = loaded;
      this.size = readResolution(resolution) ?? kFallbackSize;
      this.trouble = null;
    } catch (error) {
      this.trouble = error instanceof CameraError ? error.trouble : 'unreachable';
    }
    this.changed();
  }

  /** Changes settings. Changes in a row with the same key are one step for undo. */
  change(changes: [string, string][], key = ''): void {
    if (!this.loaded || this.save.is === 'saving') return;
    if (!key || key !== this.lastKey) this.history.push(this.edits);
    this.lastKey = key;
    this.edits = edited(this.loaded, this.edits, changes);
    this.save = { is: 'idle' };
    this.changed();
  }

  draw(kind: AreaKind, number: number, polygon: Point[], key = ''): void {
    if (this.loaded) this.change(polygonChanges(this.loaded, kind, number, polygon, this.size), key);
  }

  undo(): void {
    if (this.save.is === 'saving') return;
    this.edits = this.history.pop() ?? this.edits;
    this.lastKey = '';
    this.save = { is: 'idle' };
    this.changed();
  }

  discard(): void {
    this.forget();
    this.save = { is: 'idle' };
    this.changed();
  }

  /** Sends the settings, unless somebody else has changed some since they were loaded. */
  async submit(): Promise<void> {
    await this.saving(async () => {
      const latest = await this.latest();
      const theirs = differences(this.loaded!, latest);
      if (theirs.length > 0) this.save = { is: 'conflict', theirs, latest };
      else await this.send(latest);
    });
  }

  /** Sends what was changed here; what others changed elsewhere stays as they left it. */
  async saveMine(): Promise<void> {
    await this.saving(async () => this.send(await this.latest()));
  }

  takeTheirs(): void {
    if (this.save.is !== 'conflict') return;
    this.loaded = this.save.latest;
    this.forget();
    this.save = { is: 'idle' };
    this.changed();
  }

  dismissConflict(): void {
    if (this.save.is !== 'conflict') return;
    this.save = { is: 'idle' };
    this.changed();
  }

  private async latest(): Promise<Values> {
    const latest = readSettings(await ask('get_all_parameters'));
    if (!latest) throw new CameraError('refused', 200);
    return latest;
  }

  private async send(latest: Values): Promise<void> {
    await post('set_post_parameters', uploadBody(withEdits(latest, this.edits)));
    // From here on they are saved, even if the camera does not answer again.
    this.loaded = withEdits(latest, this.edits);
    this.forget();
    this.save = { is: 'saved' };
    this.loaded = await this.latest().catch(() => this.loaded);
  }

  private async saving(steps: () => Promise<void>): Promise<void> {
    if (!this.loaded || this.save.is === 'saving') return;
    this.save = { is: 'saving' };
    this.changed();
    try {
      await steps();
    } catch (error) {
      const known = error instanceof CameraError ? error : new CameraError('unreachable', 0);
      this.save = { is: 'failed', trouble: known.trouble, status: known.status };
    }
    this.changed();
  }

  private forget(): void {
    this.edits = new Map();
    this.history = [];
    this.lastKey = '';
  }
}

import { ask, CameraError, post, Trouble } from './api';
import { Point, Size } from './geometry';
import { readResolution, readResolutions } from './readers';
import {
  altered,
  AreaKind,
  differences,
  edited,
  isWritten,
  polygonChanges,
  polygonOf,
  problems,
  readSettings,
  rebased,
  uploadBody,
  Values,
  withEdits,
  withWholeOutlines,
} from './settings';
import { Store } from './store';

export type SaveState =
  | { is: 'idle' | 'saving' | 'saved' | 'discarded' }
  /** The camera has taken the settings, but holds something else of these. */
  | { is: 'altered'; tags: string[] }
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
  private isSaving = false;
  /** Rises with every save: what was asked for before tells nothing of it. */
  private saves = 0;
  private reading: Promise<void> | null = null;
  /** What was sent since the settings were last read: the camera may have it, even if its answer never came. */
  private sent: [string, string][] = [];

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

  /**
   * Reads the settings, if they are not being read already. Nothing is read while there are unsaved changes, for these were
   * made to what is shown: a save looks by itself what others have changed.
   */
  load(): Promise<void> {
    this.reading ??= this.read().finally(() => (this.reading = null));
    return this.reading;
  }

  private async read(): Promise<void> {
    if (this.isSaving || this.edits.size > 0) return;
    const { saves } = this;
    try {
      const [loaded, resolution] = await Promise.all([this.latest(), ask('get_analysis_resolution')]);
      if (this.saves !== saves || this.edits.size > 0) return;
      this.size = readResolution(resolution) ?? kFallbackSize;
      // What can be undone was done to other settings, and what was said was said of them.
      if (this.loaded && differences(this.loaded, loaded).length > 0) {
        this.forget();
        this.save = { is: 'idle' };
      }
      this.take(loaded);
      this.trouble = null;
    } catch (error) {
      this.trouble = error instanceof CameraError ? error.trouble : 'unreachable';
    }
    this.changed();
  }

  /** Changes settings, also while others are being saved. Changes in a row with the same key are one step for undo. */
  change(changes: [string, string][], key = ''): void {
    if (!this.loaded) return;
    const next = edited(this.loaded, this.edits, changes);
    if (differences(this.edits, next).length === 0) return;
    if (!key || key !== this.lastKey) this.history.push(this.edits);
    this.lastKey = key;
    this.edits = next;
    this.touched();
  }

  draw(kind: AreaKind, number: number, polygon: Point[], key = ''): void {
    if (this.loaded) this.change(polygonChanges(this.loaded, kind, number, polygon, this.size), key);
  }

  undo(): void {
    this.edits = this.history.pop() ?? this.edits;
    this.lastKey = '';
    this.touched();
  }

  /** Takes back every change, as one step that undo brings back. */
  discard(): void {
    this.history.push(this.edits);
    this.lastKey = '';
    this.edits = new Map();
    this.touched('discarded');
  }

  /** Another tab was opened: that something was saved is no longer of interest. */
  turnedTo(): void {
    if (this.save.is !== 'saved') return;
    this.save = { is: 'idle' };
    this.changed();
  }

  /** Sends the settings, unless somebody else has changed some since they were loaded. */
  async submit(): Promise<void> {
    await this.saving(async (mine) => {
      const latest = await this.latest();
      const theirs = differences(this.loaded!, latest).filter((tag) => !this.isMine(tag, latest.get(tag)));
      if (theirs.length > 0) this.save = { is: 'conflict', theirs, latest };
      else await this.send(latest, mine);
    });
  }

  /** Sends what was changed here; what others changed elsewhere stays as they left it. */
  async saveMine(): Promise<void> {
    await this.saving(async (mine) => this.send(await this.latest(), mine));
  }

  takeTheirs(): void {
    if (this.save.is !== 'conflict') return;
    this.loaded = this.save.latest;
    this.sent = [];
    this.forget();
    this.save = { is: 'idle' };
    this.changed();
  }

  /** What saving mine puts in place of what the camera has. */
  mineOver(latest: Values): Values {
    return withWholeOutlines(this.loaded!, this.edits, latest);
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

  /** Whether a value of the camera is one that was sent from here. */
  private isMine(tag: string, value: string | undefined): boolean {
    return (
      value !== undefined && this.sent.some(([name, mine]) => name === tag && isWritten(tag, mine, value, this.size))
    );
  }

  private async send(latest: Values, changes: Values): Promise<void> {
    const before = this.loaded!;
    const mine = withWholeOutlines(before, changes, latest);
    this.sent.push(...mine);
    const all = withEdits(latest, mine);
    await this.upload(all);
    // From here on they are saved, even if the camera does not answer again. What was typed meanwhile is a change to them,
    // also where it put something back.
    const wanted = new Map([...mine.keys()].map((tag): [string, string] => [tag, before.get(tag) ?? '']));
    this.loaded = all;
    this.edits = rebased(this.loaded, withEdits(wanted, this.edits));
    this.history = this.edits.size > 0 ? [new Map()] : [];
    this.lastKey = '';
    this.save = { is: 'saved' };
    const written = await this.latest().catch(() => null);
    if (!written) return;
    const tags = altered(all, written, this.size);
    if (tags.length > 0) this.save = { is: 'altered', tags };
    this.take(written);
  }

  private async upload(all: Values): Promise<void> {
    try {
      await post('set_post_parameters', uploadBody(all));
    } catch (error) {
      // Of what was refused the camera may hold some already, but it has stored nothing: every edit is still to be saved.
      if (error instanceof CameraError && error.trouble === 'refused')
        this.loaded = await this.latest().catch(() => this.loaded);
      throw error;
    }
  }

  /** Takes up the settings as the camera has them. */
  private take(loaded: Values): void {
    this.loaded = loaded;
    this.edits = rebased(loaded, this.edits);
    this.sent = [];
  }

  private async saving(steps: (mine: Values) => Promise<void>): Promise<void> {
    if (!this.loaded || this.isSaving) return;
    this.isSaving = true;
    ++this.saves;
    this.save = { is: 'saving' };
    this.changed();
    try {
      await steps(this.edits);
    } catch (error) {
      const known = error instanceof CameraError ? error : new CameraError('unreachable', 0);
      this.save = { is: 'failed', trouble: known.trouble, status: known.status };
    }
    this.isSaving = false;
    this.changed();
  }

  /** Something was changed: what was said of the last save is no longer of interest. */
  private touched(is: 'idle' | 'discarded' = 'idle'): void {
    if (!this.isSaving) this.save = { is };
    this.changed();
  }

  private forget(): void {
    this.edits = new Map();
    this.history = [];
    this.lastKey = '';
  }
}

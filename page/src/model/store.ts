import { useEffect, useReducer } from 'preact/hooks';

/** Something that components watch. */
export class Store {
  private watchers = new Set<() => void>();

  watch(watcher: () => void): () => void {
    this.watchers.add(watcher);
    return () => this.watchers.delete(watcher);
  }

  protected changed(): void {
    for (const watcher of [...this.watchers]) watcher();
  }
}

/** Draws the component again whenever the store changes. */
export function useStore<T extends Store>(store: T): T {
  const [, redraw] = useReducer((count: number) => count + 1, 0);
  useEffect(() => store.watch(() => redraw(undefined)), [store]);
  return store;
}

import { Store } from './store';

/** What the camera lets its user do, as its answers tell. One that tells nothing lets everybody do everything. */
class RoleStore extends Store {
  isViewer = false;

  tell(response: Response): void {
    const isViewer = response.headers.get('X-Senvo-Role') === 'viewer';
    if (isViewer === this.isViewer) return;
    this.isViewer = isViewer;
    this.changed();
  }
}

export const role = new RoleStore();

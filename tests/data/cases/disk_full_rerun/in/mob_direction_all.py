import numpy as np
import matplotlib.pyplot as plt
from mpl_toolkits.mplot3d import Axes3D

phi   = []
theta = []
mobs  = []

with open("mob_direction_all.dat", "r") as f:
    lines = f.readlines()
    for line in lines:
        if line.startswith("#"):
            continue
        if len(line) < 2:
            continue

        vars = line.split()
        phi.append(float(vars[0]) / 180.0 * np.pi)
        theta.append(float(vars[1]) / 180.0 * np.pi)
        mobs.append(float(vars[2]))

x = mobs * np.cos(theta) * np.sin(phi)
y = mobs * np.sin(theta) * np.sin(phi)
z = mobs * np.cos(phi)

# find number of columns
ncols = len(np.where(np.array(phi)<=0)[0])

# make the arrays to 2d grid
X = np.reshape(x, (-1, ncols))
Y = np.reshape(y, (-1, ncols))
Z = np.reshape(z, (-1, ncols))

plt.rcParams["font.size"] = "14"
fig = plt.figure(figsize=(12,9))
ax = fig.add_subplot(111, projection='3d')
# ax.set_aspect('equal')
ax.plot_surface(X, Y, Z, cmap='ocean')

ax.set_xlim(-0.00, 0.00)
ax.set_ylim(-0.00, 0.00)
ax.set_zlim(-0.00, 0.00)

for i in range(len(ax.get_xticklabels())):
    if (ax.get_xticks()[i] < 0.0):
        ax.get_xticklabels()[i-1].set_color('white')

for i in range(len(ax.get_yticklabels())):
    if (ax.get_yticks()[i] < 0.0):
        ax.get_yticklabels()[i-1].set_color('white')

for i in range(len(ax.get_zticklabels())):
    if (ax.get_zticks()[i] < 0.0):
        ax.get_zticklabels()[i-1].set_color('white')

plt.show()

